// What a call of the plug-in may cost when it fails.
#pragma once

#include <string>
#include <vector>

namespace sweep {

enum class Loss {
    nothing,      // every step gives what it gives without a failure
    event,        // the event in hand: at most one event of each kind, or the memory checks of one alert, or the answer
                  // of a call; only one step may differ, or several steps of one group
    changed,      // in one step, the named kinds: as many outputs as before, but others
    lost,         // in one step, the named kinds: any of their outputs
    until_start,  // the named kinds in every step up to the next start
    for_good,     // the named kinds in every step
    process,      // the plug-in ends the process
};

// One row for each kind of call and each way in which the plug-in lives with the failure.
struct Cost {
    const char* call;  // FUNCTION, FUNCTION:SUBJECT or :SUBJECT of the failing call
    const char* line;  // part of a line of level ERROR or WARN that must be new; empty: see find_cost
    Loss loss;
    const char* kinds = "";  // kinds of outputs, with a blank on both sides of each
    const char* group = "";  // only when it fails in a step of this group; empty: in any
};

// The first row that is for the call and the step's group, and whose line is among the new ones. A row without a line
// demands none, but `event` always needs a line if something was lost. Null if there is no such row: then the stated
// line is missing.
const Cost* find_cost(const std::string& call, const std::string& group, const std::vector<std::string>& new_lines);

}  // namespace sweep
