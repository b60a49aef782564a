// What the process of one run told, and whether it is as it must be.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace sweep {

struct Step {
    std::string name;
    std::string group;
    std::vector<std::string> outputs;  // sorted
    bool armed = false;
    std::vector<std::string> lines = {};  // of level ERROR or WARN
};

// One run, as its process told it.
struct Run {
    std::string call;  // the allocation that failed
    std::vector<std::string> frames;
    std::vector<Step> steps;
    std::string wrong;
    std::map<std::string, long> end;
    std::string text;  // all that it wrote
};

// Reads the lines that sweep_session.h describes.
Run parse(const std::string& text);

// What the run without a failure lacks, so that a comparison with it would be worth nothing; empty when it lacks
// nothing.
std::string unsound(const Run& baseline);

// What is wrong with a run that ended with this status of waitpid; empty when it is as it must be.
//
// A failure may cost the event in hand: at most one event of each kind, or the memory checks of one alert, or the
// answer of a call, with a new line of level ERROR or WARN. Only one step differs, or steps of one group. What is
// played without failures afterwards gives exactly what it gives in the run without a failure, and so does the balance.
std::string judge(const Run& baseline, const Run& run, int status);

std::vector<std::string> split(const std::string& text, char at);

}  // namespace sweep
