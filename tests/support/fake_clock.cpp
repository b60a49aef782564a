#include "support/fake_clock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

#include "platform/zel_support.h"

extern "C" uint64_t zel_time_get_tick_cout() { return zel_test::tick_ms; }

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (clock != CLOCK_MONOTONIC) return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    const uint64_t ms = zel_test::monotonic_ms;
    *now = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000 * 1'000'000)};
    return 0;
}
