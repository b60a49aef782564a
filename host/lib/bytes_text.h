// Bytes as people write them in a line of text.
#pragma once

#include <string>
#include <string_view>

namespace zelhost {

// Both leave white space out and throw Failure that names the first character that does not fit.
// Places count from 1. Any thread.
std::string bytes_from_hex(std::string_view text);     // pairs of digits, in upper or lower case
std::string bytes_from_base64(std::string_view text);  // with + and / or with - and _; the = at the end may be left out

}  // namespace zelhost
