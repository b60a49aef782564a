// Texts that come from an event, made fit for a line: they may hold any bytes.
#pragma once

#include <string>
#include <string_view>

namespace zelhost {

// The text with each control character, and each byte of a text that is no UTF-8, as \xNN: nothing that an event holds
// moves the cursor of a terminal or breaks a line.
std::string printable(std::string_view text);

}  // namespace zelhost
