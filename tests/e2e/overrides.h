// Clocks, sleeps and paths of the whole process. The program's own definitions of the functions behind them win over
// those of the C library, in every library that is loaded.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace e2e {

// Moves the monotonic clock, CLOCK_REALTIME and time(), forwards or back. time() moves in no other way, so that a test
// knows its whole seconds; the other two go on running as well.
void advance(std::chrono::milliseconds by);
// The clock that no test moves, for deadlines.
std::chrono::steady_clock::time_point real_now();

// From then on the alarm worker reads a monotonic clock that only advance() moves, in whole milliseconds.
void stop_alarm_workers_clock();

// What stands below /root/kq-agent/ is looked for in `folder`, from then on.
void redirect_flag_folder(const std::string& folder);

// A sleep through usleep takes a millisecond at most, or this long. Calls by each worker, and the longest that the
// trace worker asked for.
void set_longest_sleep(std::chrono::microseconds longest);
uint64_t alarm_worker_sleeps();
uint64_t trace_worker_sleeps();
uint64_t longest_trace_worker_sleep_us();

}  // namespace e2e
