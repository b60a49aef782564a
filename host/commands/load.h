// What `zelhost load` is asked for and what it has shown.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/lib/agent_folder.h"
#include "host/load/checks.h"
#include "host/load/load.h"
#include "host/load/meter.h"

namespace zelhost {

// What the command line asks for.
// Filled by the parser and only read afterwards.
struct LoadOptions {
    std::string root;                      // empty: the folder that the executable stands in
    double rate = 0;                       // events a second; 0: as fast as the bus takes them
    std::chrono::milliseconds seconds{0};  // of publishing; 0: the default
    // Threads that publish. Each has a mixture of its own.
    uint32_t threads = 2;
    Events events;
    std::string mix;  // as it was given, for people; empty: the usual one
    std::chrono::seconds max_wait{180};
    bool json = false;
    bool no_log = false;
    std::string plot;  // empty: none
    bool find_capacity = false;
    std::vector<Setting> settings;
};

// One period of publishing, and what became of its events until all had their end.
// The counts are differences between two moments at which nothing was on its way.
struct LoadMeasures {
    double asked = 0;    // events a second; 0: as fast as the bus takes them
    double seconds = 0;  // of publishing
    uint64_t in = 0, refused = 0, filtered = 0, dropped = 0;
    uint64_t reports = 0, traces = 0;  // that came while events were published
    Histogram latencies;
    std::chrono::duration<double, std::milli> published_late{0};  // at most; at a rate alone
    QueuePeaks queues;
    uint64_t inbox = 0;  // the most events that were seen to wait on the bus
    bool grows = false;  // what waits, while events were published
    bool log = true;     // without it queues, backlog and what is shed are not known
    Backlog::Sums backlog;
    // Processor time, and by what it is divided.
    // In nanoseconds. The counts below say how many events or traces the time was spent on.
    ThreadTimes times;
    int64_t publishers_time = 0;
    uint64_t begun = 0, traces_ended = 0, on_bus = 0;
    double others = 0;  // processors that other programs used meanwhile
    std::vector<LoadSample> samples;

    double in_rate() const { return static_cast<double>(in) / seconds; }
    // Whether as many events could be published as were asked for.
    bool kept_pace() const;
};

// A step of the search for the capacity.
// The samples of a step are dropped, since only the result is drawn.
// The search keeps all of its steps, in the order in which they were tried. A program can see from
// them how the result was found.
struct CapacityStep {
    double rate;
    std::string fault;  // why the rate is too high; empty if it is not
    LoadMeasures measures;
};

// All that a load has shown. The measures are those of the whole load, or of the highest rate that the search found.
// Filled during the load, and complete when the plug-in has stopped.
struct LoadEnd {
    LoadMeasures measures;
    std::vector<CapacityStep> steps;
    std::optional<double> capacity;  // found by the search
    QueueSettings settings;
    double load_before = 0, load_after = 0;                               // load average of the machine over a minute
    uint64_t resident_before = 0, resident_peak = 0, resident_after = 0;  // KiB
    Account account;
    // What must hold between the numbers of the account.
    std::vector<Check> checks;
    // Calls that were answered otherwise than they must be.
    uint64_t wrong_calls = 0;
    // Whether every event and every trace had its end before the longest wait was over.
    bool settled = true;
    bool stopped = false;  // by a signal

    // Whether the account is without a fault.
    bool closes() const;
};

// What was asked for, and the capacity if one was searched; one line without its end.
std::string load_heading(const LoadOptions& options, const LoadEnd& end);
// Both texts end with a line end.
std::string load_text(const LoadOptions& options, const LoadEnd& end);
std::string load_json(const LoadOptions& options, const LoadEnd& end);
// One line for a step of the search.
std::string step_text(const CapacityStep& step);

}  // namespace zelhost
