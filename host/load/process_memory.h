// The memory of this process.
#pragma once

#include <cstdint>

namespace zelhost {

// Resident memory in KiB. With `trim` the allocator first gives back what it can; otherwise freed memory that it keeps
// would look like a leak. A sanitizer keeps what was freed, so that the figure says nothing there.
enum class Trim { no, yes };
uint64_t resident_kib(Trim trim);
// Callers that judge the growth of memory leave it out when this is false.
inline constexpr bool kMeasureMemory = ZEL_ADDRESS_SANITIZER == 0 && ZEL_THREAD_SANITIZER == 0;

}  // namespace zelhost
