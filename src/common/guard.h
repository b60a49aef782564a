// The border that no exception crosses: exports, bus calls, call-backs, thread entries.
#pragma once

#include <exception>

#include "common/log.h"

namespace zel {

// Runs one step. False with an ERROR line when an exception ended it; what the step owned has been freed on the way
// out.
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
