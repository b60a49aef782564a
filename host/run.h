// `zelhost run`: plays a script of events to the plug-in of an agent folder and shows what it gives out.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent.h"
#include "agent_folder.h"
#include "figures.h"
#include "line_reader.h"
#include "options.h"
#include "output.h"
#include "reports.h"
#include "stop_signal.h"

namespace zel {

enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2, kLinesSkipped = 3, kMaxWaitPassed = 4 };

// All that a run holds, in the order in which it is made.
struct Run {
    explicit Run(const RunOptions& wanted) : options(wanted) {}

    RunOptions options;
    StopSignal stop;
    Figures figures;
    Reports reports;
    std::optional<AgentFolder> folder;
    std::optional<Output> output;
    std::optional<LineReader> input;
    std::optional<Bus> bus;
    std::optional<TraceCounts> trace_counts;  // none when the agent's trace module is no stand-in
    std::optional<ReportManager> manager;     // none when the agent has none
    std::optional<Plugin> plugin;
    std::vector<uint64_t> sinks;
    Figures::Clock::time_point begin = Figures::Clock::now();

    std::string log_place;  // where the log goes, for people
    bool init_called = false;
    bool started = false;
    bool reset_open = false;  // between reset_begin and reset_end
    bool failed = false;
    bool max_wait_passed = false;
    uint64_t lines_skipped = 0;
};

ExitCode run(const RunOptions& options);

// Waits until nothing has been published, logged or sent for the idle time and the bus has delivered all; with `traces`
// also until no trace is open. Gives up when a signal comes or the longest wait has passed, which it notes in the run.
void wait_until_idle(Run& run, bool traces);

// Collects a report from the plug-in for the sums, and prints it if wanted.
void collect_report(Run& run, bool print);

// Does what one line of the input asks for. Throws Failure when the line cannot be understood.
void play_line(Run& run, std::string_view line);

// The human summary, from what the run has counted and from what the libraries say now.
std::string summary(const Run& run);

}  // namespace zel
