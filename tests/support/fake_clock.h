// Clocks of a test program: both are defined here, in the program itself, and win over the libraries' own. The other
// clocks of clock_gettime are real.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <ctime>

#include "platform/zel_support.h"

namespace zel_test {

inline std::atomic<uint64_t> tick_ms{1'000'000};       // zel_time_get_tick_cout
inline std::atomic<uint64_t> monotonic_ms{1'000'000};  // CLOCK_MONOTONIC

}  // namespace zel_test

extern "C" __attribute__((used)) inline uint64_t zel_time_get_tick_cout() { return zel_test::tick_ms; }

extern "C" __attribute__((used, visibility("default"))) inline int clock_gettime(clockid_t clock,
                                                                                 timespec* now) noexcept {
    if (clock != CLOCK_MONOTONIC) return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    const uint64_t ms = zel_test::monotonic_ms;
    *now = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000 * 1'000'000)};
    return 0;
}
