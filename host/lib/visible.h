// Text as a terminal can show it. Documents, events and files hold any bytes, and a terminal obeys some of them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zelhost {

// A character or a bad byte as it is shown.
struct Cell {
    size_t begin;  // in the text
    size_t end;    // likewise, one behind
    std::string text;
    // Columns on a terminal; 0 for a character that is drawn onto the one before it.
    size_t columns;
};

// The character at a place of the text. What is no visible character is shown as an escape such as \x1b, byte by byte:
// controls, bytes that are no UTF-8, and characters that change how others are shown.
Cell cell_at(std::string_view text, size_t at);

// `at`, or the byte before it from which on the text can be read: not in the middle of a character.
size_t character_begin(std::string_view text, size_t at);

// The whole text so.
std::string visible(std::string_view text);

}  // namespace zelhost
