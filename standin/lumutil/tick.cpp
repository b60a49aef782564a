// The clock.
#include <ctime>

#include "platform/zel_support.h"

// The clock does not stop or jump when somebody sets the time. The misspelt name is the agent's.
uint64_t zel_time_get_tick_cout() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}
