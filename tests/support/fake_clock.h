// Clocks of a test program that is linked with test_clock: both are the program's own and win over the libraries'.
#pragma once

#include <atomic>
#include <cstdint>

namespace zel_test {

inline std::atomic<uint64_t> tick_ms{1'000'000};       // zel_time_get_tick_cout
inline std::atomic<uint64_t> monotonic_ms{1'000'000};  // CLOCK_MONOTONIC; the other clocks of clock_gettime are real

}  // namespace zel_test
