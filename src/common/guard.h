// The border that no exception crosses: exports, calls from the bus, callbacks and the turns of the workers. The
// callers on the other side are C or foreign C++ code, and an exception there would end the process.
#pragma once

#include <exception>

#include "common/log.h"

namespace zel {

// Runs one step. When an exception ended it, the answer is false and an ERROR line says what was given up. By then the
// step's owners have freed what they held.
template <class Step>
bool guarded(const char* what, Step step) {
    try {
        step();
        return true;
    } catch (const std::exception& e) {
        LOG_ERROR("%s given up: %s", what, e.what());
    } catch (...) {
        LOG_ERROR("%s given up: %s", what, "unknown exception");
    }
    return false;
}

}  // namespace zel
