// What ends a run or skips a line. Its text is one line that says what failed, where, and what to do.
#pragma once

#include <fmt/format.h>

#include <stdexcept>

namespace zelhost {

// Thrown by any part of the host. The command or the reader of the input catches it, and says its
// text on standard error.
class Failure : public std::runtime_error {
public:
    template <class... T>
    explicit Failure(fmt::format_string<T...> text, T&&... values)
        : std::runtime_error(fmt::format(text, std::forward<T>(values)...)) {}
};

}  // namespace zelhost
