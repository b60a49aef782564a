// Texts that may be no UTF-8, as texts of an agent are now and then, and how JSON shows them all the same.
#pragma once

#include <string>
#include <string_view>

namespace zelhost {

bool is_utf8(std::string_view text);

// The bytes as a JSON string, one byte as one character, written as \u0000 to \u00ff where it is not ASCII.
std::string latin1_json(std::string_view bytes);

}  // namespace zelhost
