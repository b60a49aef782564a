// What else the machine does. A measure that depends on speed means little without it.
#pragma once

#include <cstdint>
#include <string_view>

namespace zelhost {

// Over the last minute; 0 when the system does not tell.
double load_average();
// Processor time of all programs since the machine started, in seconds; 0 when the system does not tell.
// The difference of two calls is what all programs used in between.
double machine_busy_seconds();
// Of the thread of this process with that name, in nanoseconds; 0 when there is none.
int64_t thread_time_ns(std::string_view name);

}  // namespace zelhost
