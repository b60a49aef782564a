// The clocks of the whole process, for programs that set them: tests, long runs, a replay. A program that is linked
// with zel_clocks has clock_gettime, time, usleep and zel_time_get_tick_cout of its own, and they win over those of the
// libraries in every library that it loads; to that end it exports them.
//
// Until one of the functions below is called, all of them show and do what the machine's would. Any thread may call any
// of them; what must hold from the start is set before other threads run.
#pragma once

#include <chrono>
#include <cstdint>

namespace zelhost::clocks {

// CLOCK_MONOTONIC, CLOCK_REALTIME and time(). zel_time_get_tick_cout follows the first.
// The number is the place in the table of courses.
enum Clock { monotonic, realtime, whole_seconds };

// The clock shows this from now on and moves by `advance` alone.
// Before other threads run. In nanoseconds since the clock's own beginning.
void stand_still(Clock clock, std::chrono::nanoseconds shown);
// Moves all clocks, forwards or back.
void advance(std::chrono::milliseconds by);

// From now on the monotonic clock and time() run that many times as fast as the machine's, and a sleep of a second or
// more takes that much less. Shorter sleeps are those of idle loops and stay as they are.
void speed_up(int times);
// No sleep takes longer than this, whatever is asked for.
void set_longest_sleep(std::chrono::microseconds longest);
// `watch` sees each call of usleep with what it asks for, on the calling thread.
void watch_sleeps(void (*watch)(uint32_t microseconds));

// From now on zel_time_get_tick_cout answers what this function says, on the calling thread.
void replace_ticks(uint64_t (*ticks)());

// Sees what each caller asks of the clocks, and may answer something else. The caller is the address behind the call.
class Watch {
public:
    virtual ~Watch() = default;

    // What the caller sees, in nanoseconds; `shown` is what it would see without the watch.
    virtual int64_t monotonic_ns(int64_t shown, const void* caller) = 0;
    virtual int64_t seconds(int64_t shown, const void* caller) = 0;  // of time()
    virtual uint64_t ticks(uint64_t shown, const void* caller) = 0;  // milliseconds of zel_time_get_tick_cout
    // Sleeps, or does not.
    virtual void sleep(uint32_t microseconds, const void* caller) = 0;
};
// Null takes the watch off.
// The object is borrowed. No thread may be in a call of it when it is taken off and destroyed.
void set_watch(Watch* watch);
// Sleeps as usleep does without a watch.
void sleep(uint32_t microseconds);

// The machine's own clock, which nothing above moves; for deadlines.
std::chrono::steady_clock::time_point machine_now();

}  // namespace zelhost::clocks
