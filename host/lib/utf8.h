// Texts that may be no UTF-8, as texts of an agent are now and then, and how JSON shows them all the same.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zelhost {

// How many bytes from the beginning are UTF-8; the whole size when all are.
size_t utf8_prefix(std::string_view text);
inline bool is_utf8(std::string_view text) { return utf8_prefix(text) == text.size(); }

// The bytes as a JSON string, one byte as one character, written as \u0000 to \u00ff where it is not ASCII. Whoever
// writes one names its key in a list "latin1" beside it, so that a reader can take the bytes back.
// Any thread, like all functions of this file.
std::string latin1_json(std::string_view bytes);

}  // namespace zelhost
