// What the account of a long run must show. What went in equals what has an end, by kind and in sum, and the plug-in's
// own figures say the same. A check asks for equality wherever a sum is exact, and for a limit only where the run
// itself cannot know more.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/lib/account.h"

namespace zelhost {

// How a run was made, and so which checks are exact.
struct Terms {
    // True if the run was stopped when everything had its end, and reports were collected only when nothing ran, the
    // last one at the end. No count was then lost to the reset behind a report, and none was reported twice. False if
    // the run was stopped with full queues.
    // Some calls of reset_db_begin were made. Events that come in a reset period are let go without
    // a line in the log.
    bool settled = true;
    bool resets = false;
    bool partial_results = false;  // the trace module gives a result with a failure, too
    // The most events that the event queue held at any time. A stop discards no more of a queue
    // than that.
    uint64_t longest_event_queue = 0;
    uint64_t outlived = 0;  // most events that were released when the trace module was gone
};

// Two numbers and how they must stand to each other. The text names both, separated by " / ".
struct Check {
    // The numbers that are compared. Both are counts of events, traces or buffers, as `what` says.
    std::string what;
    int64_t left;
    int64_t right;
    bool at_most;  // otherwise equal

    bool holds() const { return at_most ? left <= right : left == right; }
};
// All checks, those that hold included, so that a run can say how many there were. Without the log
// there are fewer, and when the run was not settled either, only those of the bus.
std::vector<Check> check_account(const Account& account, const Terms& terms);

// One line for each check that does not hold; empty if all hold.
std::string failed_text(const std::vector<Check>& checks);

}  // namespace zelhost
