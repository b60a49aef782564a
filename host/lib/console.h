// Standard error as a person reads it: messages, and one line of progress on a terminal. Any thread.
#pragma once

#include <fmt/format.h>

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

// Replaces the progress line; does nothing unless standard error is a terminal. An empty text takes the line away.
void progress(const std::string& text);

}  // namespace zelhost::console
