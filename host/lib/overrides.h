// Clocks, sleeps and paths of the whole process, as programs want them that wait for nothing: end-to-end tests and the
// call sweep. The program's own definitions of the functions behind them win over those of the C library, in
// every library that is loaded.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "host/lib/clocks.h"

namespace zelhost::overrides {

// time() stands still, so that a test knows its whole seconds; the other clocks go on running. This moves all of them.
using clocks::advance;
// The clock that no test moves, for deadlines.
inline std::chrono::steady_clock::time_point real_now() { return clocks::machine_now(); }

// What stands below /root/kq-agent/ is looked for in `folder`, from then on.
void redirect_flag_folder(const std::string& folder);
// From then on fopen opens what `replacement` answers in place of the path. It fails when the answer is null.
// The function runs on the thread that opens the file.
void replace_files(const char* (*replacement)(const char* path, const char* mode));

// A sleep through usleep takes a millisecond at most. Calls by each worker, and the longest that the trace worker asked
// for.
using clocks::set_longest_sleep;
uint64_t alarm_worker_sleeps();
uint64_t trace_worker_sleeps();
uint64_t longest_trace_worker_sleep_us();

}  // namespace zelhost::overrides
