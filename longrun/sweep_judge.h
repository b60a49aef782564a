// What the process of one run told, and whether it is as it must be. Plain functions of their arguments; any thread.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace sweep {

// One step of the scenario as the run saw it.
struct Step {
    std::string name;
    std::string group;
    std::vector<std::string> outputs;  // sorted
    bool armed = false;
    std::vector<std::string> lines = {};  // of level ERROR or WARN
};

// One run as its process told it.
struct Run {
    std::string call;  // FUNCTION or FUNCTION:SUBJECT of the call that failed
    std::string thread;
    std::vector<std::string> frames;
    size_t failed_at = 0;  // the step in which it failed
    std::vector<Step> steps;
    std::string ended;  // the step in which the plug-in ended the process
    std::string wrong;
    std::map<std::string, long> end;
    std::string text;  // all that it wrote
};

// Reads the lines that sweep_session.h describes. Other lines, such as those of a sanitizer, stay in `text` alone.
Run parse(const std::string& text);

// Says what is wrong with the run without a failure, or what it lacks; a comparison with such a run would be worth
// nothing. Empty when it lacks nothing.
std::string judge_alone(const Run& baseline, int status);

// Says what is wrong with a run that ended with this status of waitpid. Empty when the run is as it must be.
//
// sweep_costs.h says what a call may cost when it fails. Beyond that, each step must give exactly what it gives in the
// run without a failure, and so must the balance at the end.
std::string judge(const Run& baseline, const Run& run, int status);

// Parts between the separators; with a blank as separator, empty parts are left out.
std::vector<std::string> split(const std::string& text, char at);

}  // namespace sweep
