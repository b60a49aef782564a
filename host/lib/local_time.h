// The time of day, for people.
#pragma once

#include <cstdint>
#include <string>

namespace zelhost {

// "12:31:26.638" in the local zone, with a date before it if wanted: "2026-11-25 12:31:26.638".
// Any thread.
std::string local_time(bool with_date);
// The same for a time in microseconds since 1970.
std::string local_time(int64_t at_us, bool with_date);

}  // namespace zelhost
