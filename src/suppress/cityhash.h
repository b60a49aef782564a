// CityHash64, version 1.1: a quick hash of bytes whose values are fixed by the published algorithm. Not for security.
#pragma once

#include <cstdint>
#include <string_view>

namespace zel {

uint64_t CityHash64(std::string_view text);

}  // namespace zel
