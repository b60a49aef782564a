// Where the plug-in would end the agent's process, this library throws instead: one document must not end the check of
// all others.
#pragma once

#include <stdexcept>

namespace zel::check {

// Its text is what the process would print, without the program's name and the place in the source.
struct ProcessEnd : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace zel::check
