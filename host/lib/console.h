// Standard error as a person reads it: messages, and one line of progress on a terminal. Any thread.
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <functional>
#include <string>

namespace zelhost::console {

// Writes "PROGRAM: TEXT" as one line.
void message(const std::string& text);

// The same, from a format and its values.
template <class... T>
void say(fmt::format_string<T...> text, T&&... values) {
    message(fmt::format(text, std::forward<T>(values)...));
}

// Writes text of several lines as it stands.
void block(const std::string& text);

// Replaces the progress line, as far as it fits; does nothing unless standard error is a terminal. An empty text takes
// the line away.
void progress(const std::string& text);

// Writes to a terminal that may be the same one: the progress line goes away before `write` and comes back after it.
// `write` must not call this file: the lock is held.
void above_progress(const std::function<void()>& write);

// How many characters a line of that terminal holds; 0 for anything else.
size_t columns(int descriptor);

}  // namespace zelhost::console
