// The overrides themselves are at the end. They ask the kernel directly: to find the functions of the C library that
// they replace would take a look-up, which allocates.
#include "host/lib/clocks.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <limits>

#include "platform/zel_support.h"

#define OVERRIDE extern "C" __attribute__((visibility("default")))

namespace zelhost::clocks {
namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kLongSleepUs = 1'000'000;
// time() follows the real-time clock. It has a course of its own, so that it can stand still alone.
constexpr clockid_t kMachineClocks[] = {CLOCK_MONOTONIC, CLOCK_REALTIME, CLOCK_REALTIME};

// What a clock shows: so much at that moment of the machine's clock, and from there so many times as fast. Constants at
// first: the loader and the sanitizers may ask for the time before any constructor has run.
struct Course {
    std::atomic<int64_t> speed{1};
    std::atomic<int64_t> since_ns{0};
    std::atomic<int64_t> shown_ns{0};
};
Course g_courses[3];
// All of these are read by any thread on each call and set rarely.
std::atomic<int64_t> g_longest_sleep_us{std::numeric_limits<int64_t>::max()};
std::atomic<void (*)(uint32_t)> g_watch{nullptr};
std::atomic<uint64_t (*)()> g_ticks{nullptr};
std::atomic<Watch*> g_clock_watch{nullptr};

// In nanoseconds, from the kernel.
int64_t machine_ns(clockid_t clock) {
    timespec now{};
    syscall(SYS_clock_gettime, clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

// A clock that stands still is not asked for the machine's time.
int64_t shown_ns(Clock clock) {
    const Course& course = g_courses[clock];
    if (course.speed == 0) return course.shown_ns;
    return course.shown_ns + (machine_ns(kMachineClocks[clock]) - course.since_ns) * course.speed;
}

// Three stores, which another thread may see apart: so courses are set before others run, and only `advance` moves a
// clock later.
void set(Clock clock, int64_t shown, int64_t speed) {
    Course& course = g_courses[clock];
    course.since_ns = machine_ns(kMachineClocks[clock]);
    course.shown_ns = shown;
    course.speed = speed;
}

}  // namespace

void stand_still(Clock clock, std::chrono::nanoseconds shown) { set(clock, shown.count(), 0); }

// An addition is one step, so that this needs no order with readers.
void advance(std::chrono::milliseconds by) {
    const int64_t ns = std::chrono::nanoseconds(by).count();
    for (Course& course : g_courses) course.shown_ns += ns;
}

void speed_up(int times) {
    for (const Clock clock : {monotonic, whole_seconds}) set(clock, shown_ns(clock), times);
}

void set_longest_sleep(std::chrono::microseconds longest) { g_longest_sleep_us = longest.count(); }

void watch_sleeps(void (*watch)(uint32_t)) { g_watch = watch; }

void replace_ticks(uint64_t (*ticks)()) { g_ticks = ticks; }

void set_watch(Watch* watch) { g_clock_watch = watch; }

void sleep(uint32_t microseconds) {
    // In microseconds. A long sleep is shortened by as much as the clock runs faster.
    int64_t us = microseconds;
    if (us >= kLongSleepUs) us /= std::max<int64_t>(g_courses[monotonic].speed, 1);
    us = std::min<int64_t>(us, g_longest_sleep_us);
    const timespec wanted{us / 1'000'000, us % 1'000'000 * 1000};
    syscall(SYS_nanosleep, &wanted, nullptr);
}

std::chrono::steady_clock::time_point machine_now() {
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(machine_ns(CLOCK_MONOTONIC)));
}

}  // namespace zelhost::clocks

using namespace zelhost::clocks;

// Other clocks, as those of processor time, are the machine's.
OVERRIDE int clock_gettime(clockid_t clock, timespec* now) noexcept {
    int64_t ns = clock == CLOCK_MONOTONIC  ? shown_ns(monotonic)
                 : clock == CLOCK_REALTIME ? shown_ns(realtime)
                                           : machine_ns(clock);
    if (Watch* const watch = g_clock_watch; watch != nullptr && clock == CLOCK_MONOTONIC)
        ns = watch->monotonic_ns(ns, __builtin_return_address(0));
    *now = {ns / kSecond, ns % kSecond};
    return 0;
}

OVERRIDE time_t time(time_t* out) noexcept {
    int64_t now = shown_ns(whole_seconds) / kSecond;
    // A watch may answer something else, as a replay does.
    if (Watch* const watch = g_clock_watch) now = watch->seconds(now, __builtin_return_address(0));
    if (out != nullptr) *out = now;
    return now;
}

// The watch of sleeps sees what was asked for, not how long the sleep takes.
OVERRIDE int usleep(useconds_t microseconds) {
    if (void (*const watch)(uint32_t) = g_watch) watch(microseconds);
    if (Watch* const watch = g_clock_watch)
        watch->sleep(microseconds, __builtin_return_address(0));
    else
        zelhost::clocks::sleep(microseconds);
    return 0;
}

uint64_t zel_time_get_tick_cout() {
    // A replacement is asked alone, so that a test has the ticks in its hand.
    if (uint64_t (*const ticks)() = g_ticks) return ticks();
    const uint64_t now = static_cast<uint64_t>(shown_ns(monotonic)) / 1'000'000;
    if (Watch* const watch = g_clock_watch) return watch->ticks(now, __builtin_return_address(0));
    return now;
}
