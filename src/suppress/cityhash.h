// CityHash64, version 1.1: a quick hash of bytes. The published algorithm fixes its values, and the hot cache's log
// lines show them. Not for security. Any thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace zel {

uint64_t CityHash64(std::string_view text);

}  // namespace zel
