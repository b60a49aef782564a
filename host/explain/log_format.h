// Lines of a log against the formats that wrote them. Any thread; the values are views into the line.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace zelhost {

// The values of a line, in the order in which the format names them; nothing when the format cannot have written it.
// `format` is one of printf with %s and whole numbers. A text may hold any bytes, also those that follow it in the
// format: the shortest texts that fit are taken, but before the value at the place `guid` the longest. That value is at
// most as long as the GUID of an alert.
// `guid` counts the values from 0; -1 when none of them is a GUID.
std::optional<std::vector<std::string_view>> values_of(std::string_view line, std::string_view format, int guid = -1);

// The part of a format before its first value, with "%%" as it is written.
std::string_view head_of(std::string_view format);

}  // namespace zelhost
