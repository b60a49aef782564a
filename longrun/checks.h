// The account of a run: what went in equals what has an end, by kind and in sum, and the plug-in's own figures say the
// same.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent.h"
#include "figures.h"
#include "reports.h"

namespace zelhost {

// What has no end. When nothing runs, these are the entries of the queues or, after a stop, what the stop discarded.
// Signed: more ends than beginnings would show as less than nothing.
struct Left {
    int64_t at_intake = 0;  // taken up by the plug-in's call-back and neither queued nor ended
    int64_t events = 0;     // in the event queue
    int64_t on_worker = 0;  // taken from it and not ended, or sent and not yet done with; KOV alerts apart
    int64_t kov = 0;        // KOV alerts whose completion was put off
    int64_t traces = 0;     // in the trc queue and the delay queue

    bool operator==(const Left&) const = default;
};
Left left_of(const Totals& totals);

struct Account {
    lummb_counts bus{};
    zeltrc_counts trace{};
    Totals totals;
    Left left;
    Reports reports;
    uint64_t file_answers = 0;
    uint64_t all_answers = 0;          // calls of the host's result callback, whatever for
    uint64_t process_traces = 0;       // accepted
    uint64_t delivered_in_resets = 0;  // most events that were released unhandled in a reset period
    uint64_t outlived = 0;             // most events that were released after the trace module had been unloaded
};

// How a run was made, and so what must hold.
struct Terms {
    // Stopped when all had its end, and reports were collected only when nothing ran, the last one at the end: no count
    // was lost to the reset behind a report, and none was reported twice. Otherwise stopped with full queues.
    bool settled = true;
    bool resets = false;
    bool partial_results = false;  // the trace module gives a result with a failure, too
    uint64_t longest_event_queue = 0;
};

struct Check {
    std::string what;
    int64_t left;
    int64_t right;
    bool at_most;  // otherwise equal

    bool holds() const { return at_most ? left <= right : left == right; }
};
std::vector<Check> check_account(const Account& account, const Terms& terms);

// One line a kind: what came in and what became of it.
std::string balance_text(const Totals& totals);
// One line a check that does not hold; empty if all do.
std::string failed_text(const std::vector<Check>& checks);

}  // namespace zelhost
