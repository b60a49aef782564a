// What the account of a long run must show: what went in equals what has an end, by kind and in sum, and the plug-in's
// own figures say the same. Equal wherever a sum is exact; a limit only where the run itself cannot know more.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/lib/account.h"

namespace zelhost {

// How a run was made, and so what must hold.
struct Terms {
    // Stopped when all had its end, and reports were collected only when nothing ran, the last one at the end: no count
    // was lost to the reset behind a report, and none was reported twice. Otherwise stopped with full queues.
    bool settled = true;
    bool resets = false;
    bool partial_results = false;  // the trace module gives a result with a failure, too
    uint64_t longest_event_queue = 0;
    uint64_t outlived = 0;  // most events that were released after the trace module had been unloaded
};

struct Check {
    std::string what;
    int64_t left;
    int64_t right;
    bool at_most;  // otherwise equal

    bool holds() const { return at_most ? left <= right : left == right; }
};
std::vector<Check> check_account(const Account& account, const Terms& terms);

// One line a check that does not hold; empty if all do.
std::string failed_text(const std::vector<Check>& checks);

}  // namespace zelhost
