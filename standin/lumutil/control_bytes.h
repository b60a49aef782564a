// Control characters in a log line. A text that comes in with an argument may be an attacker's. With a newline of its
// own it would begin a line that nobody wrote, and with an escape code it would change what a terminal shows.
#pragma once

#include <cstddef>

namespace lumutil {

// Whether the byte at `text` is one of the ASCII control characters but the tab, or begins one of the control
// characters from U+0080 to U+009F in UTF-8. `text` ends with a zero byte.
inline bool is_control(const char* text) {
    const auto byte = static_cast<unsigned char>(*text);
    if (byte < 0x20) return byte != '\t' && byte != 0;
    const auto next = static_cast<unsigned char>(byte == 0xC2 ? text[1] : 0);
    return byte == 0x7F || (next >= 0x80 && next < 0xA0);
}

// Writes the line to `out` with each control character as \n, \r, \x1b or \u009b, and a terminator. Where `own` has
// another byte than `line`, the character stays as it is; null stands for none. Both have `size` bytes. Returns the
// length of the result; with a null `out` it only measures.
size_t escape_controls(const char* line, const char* own, size_t size, char* out);

}  // namespace lumutil
