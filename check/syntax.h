// Where a text stops to be JSON for the parser, and why. The parser says so only in part: at a text it stops a byte
// late, and it gives no reason.
#pragma once

#include <cstddef>
#include <string_view>

namespace zel::check {

// One fault of the text. The reason is a constant text.
struct SyntaxError {
    const char* reason;
    size_t offset;  // of the first byte that is wrong, from 0
    size_t size;    // in bytes; 0 at the end of the text
};

// For a text that the parser has refused; it takes the text up to the first NUL byte. `stopped_at` is the parser's own
// word for the place, which is given where nothing better is known.
SyntaxError find_syntax_error(std::string_view text, size_t stopped_at);

// An escape \uXXXX, and the number that the parser makes of it: 0 when its digits are none.
inline constexpr size_t kEscapeSize = 6;
unsigned code_unit(std::string_view escape);

}  // namespace zel::check
