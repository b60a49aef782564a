// A minute of the run is an hour of the plug-in's: the monotonic clock, time() and sleeps of a second or more, for
// every library of the process.
#pragma once

#include <chrono>

namespace zelhost {

inline constexpr int kClockSpeed = 60;

// The clock of the machine.
std::chrono::milliseconds machine_time();

}  // namespace zelhost
