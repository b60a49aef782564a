#include "longrun/sweep_judge.h"

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>
#include <tuple>
#include <utility>

#include "longrun/sweep_costs.h"

namespace sweep {
namespace {

// Outputs in one line for people.
std::string shown(const std::vector<std::string>& texts) {
    std::string all;
    for (const auto& text : texts) all += (all.empty() ? "" : " ") + text;
    return all.empty() ? "nothing" : all;
}

std::string difference(const Step& expected, const Step& seen) {
    return "step '" + seen.name + "' gave " + shown(seen.outputs) + " in place of " + shown(expected.outputs);
}

// The texts that stand in `seen` more often than in `expected`.
std::vector<std::string> beyond(std::vector<std::string> expected, std::vector<std::string> seen) {
    std::vector<std::string> surplus;
    std::ranges::sort(expected);
    std::ranges::sort(seen);
    std::ranges::set_difference(seen, expected, std::back_inserter(surplus));
    return surplus;
}

// An output is KIND:DETAILS.
std::string kind_of(const std::string& output) { return output.substr(0, output.find(':')); }

// Calls answer whatever happens, so their number does not tell of a loss.
bool is_call(const std::string& kind) {
    constexpr const char* kCalls[] = {"init", "configure", "file_trace", "process_trace", "report"};
    return std::ranges::find(kCalls, kind) != std::end(kCalls);
}

// Outputs that are a failure's own. An event whose GUID could not be copied goes out without one. A file trace without
// a message is asked for all the same, and its callback comes without data.
bool is_of_failure(const std::string& output) {
    return output.find(":-1") != std::string::npos || output.ends_with(":guid-without") || output == "callback8:0";
}

// A report has all of its figures or is not given at all. Five figures are about traces and are there only when one
// succeeded.
bool is_whole_report(const std::string& output) {
    return output.ends_with(":0:0") || output.ends_with(":1:12") || output.ends_with(":1:14");
}

// Says what the differing steps lost or gained beyond one event; empty when it is no more. `alone` means a step that
// depends on no other, so nothing else may have changed in it.
std::string too_much(const std::vector<std::pair<const Step*, const Step*>>& differing, bool alone) {
    std::map<std::string, int> kinds;
    std::vector<std::string> expected;
    std::vector<std::string> seen;
    for (const auto& [before, now] : differing) {
        for (const auto& output : before->outputs) --kinds[kind_of(output)];
        for (const auto& output : now->outputs) ++kinds[kind_of(output)];
        expected.insert(expected.end(), before->outputs.begin(), before->outputs.end());
        seen.insert(seen.end(), now->outputs.begin(), now->outputs.end());
    }
    for (const auto& [kind, change] : kinds) {
        if (is_call(kind)) continue;
        if (change > 0) return "more of " + kind;
        // One alert has several memory checks, and a copy of the report and of its trace.
        if (change < -1 && kind != "2305" && kind != "copy") return std::to_string(-change) + " of " + kind + " lost";
    }
    std::vector<std::string> surplus = beyond(expected, seen);
    for (const auto& output : surplus)
        if (output.starts_with("report:zelreshdl:") && !is_whole_report(output)) return "part of a report";
    if (!alone) return "";
    // What is left was given in another form, and no failure explains that.
    std::erase_if(surplus, is_of_failure);
    return surplus.empty() ? "" : "changed: " + shown(surplus);
}

// What the run without a failure lacks; a comparison with such a run would be worth nothing.
std::string unsound(const Run& baseline) {
    std::map<std::string, int> kinds;
    for (const Step& step : baseline.steps)
        for (const auto& output : step.outputs) ++kinds[kind_of(output)];
    // A scenario that no longer reaches a road would find no fault there.
    for (const char* kind : {"769", "770", "771", "2305", "callback8", "callback10", "report"})
        if (kinds[kind] == 0) return std::string("no ") + kind;
    for (const char* key : {"alive", "late", "frames", "threads", "inits"})
        if (baseline.end.at(key) != 0) return key + ("=" + std::to_string(baseline.end.at(key)));
    return "";
}

// A step that differs from the run without a failure: as it is there, and as it is here.
using Differing = std::vector<std::pair<const Step*, const Step*>>;

std::string difference(const Differing& differing) {
    return difference(*differing.front().first, *differing.front().second);
}

// What ended the process; a crash says more than any difference. Empty when it came to its end by itself.
std::string crash(const Run& run, int status) {
    if (WIFSIGNALED(status)) {
        const std::string last = run.steps.empty() ? "the begin" : "step '" + run.steps.back().name + "'";
        return std::string("ended by signal ") + strsignal(WTERMSIG(status)) + " after " + last;
    }
    // A sanitizer's report; its exit code alone would not say what it found.
    for (const auto& line : split(run.text, '\n'))
        if (line.find("ERROR: ") != std::string::npos || line.find("runtime error: ") != std::string::npos) return line;
    return WEXITSTATUS(status) == 0 ? "" : "exit code " + std::to_string(WEXITSTATUS(status));
}

std::vector<std::string> new_lines(const Run& baseline, const Run& run) {
    std::vector<std::string> all;
    // A run that ended early has fewer steps, and its last one stands where another would be.
    for (size_t i = 0; i < run.steps.size() && i < baseline.steps.size(); ++i)
        std::ranges::copy(beyond(baseline.steps[i].lines, run.steps[i].lines), std::back_inserter(all));
    return all;
}

// Empty when only one step differs, or steps of one group.
std::string beyond_one_group(const Differing& differing) {
    const Step& first = *differing.front().second;
    for (const auto& [before, now] : differing) {
        // A flush may differ: it brings out what the lost event left behind.
        if (!now->armed && !now->name.starts_with("flush")) return "afterwards: " + difference(*before, *now);
        if (now != &first && (now->group == "-" || now->group != first.group))
            return "more than the event in hand: " + difference(differing) + "; " + difference(*before, *now);
    }
    return "";
}

// Empty when the outputs of this step differ in the named kinds alone.
std::string beyond_kinds(const Step& before, const Step& now, const Cost& cost) {
    std::map<std::string, int> numbers;
    const auto named = [&](const std::string& kind) {
        return std::string(cost.kinds).find(" " + kind + " ") != std::string::npos;
    };
    for (const auto& [seen, other, sign] : {std::tuple(&now, &before, 1), std::tuple(&before, &now, -1)}) {
        for (const auto& output : seen->outputs) numbers[kind_of(output)] += sign;
        for (const auto& output : beyond(other->outputs, seen->outputs))
            if (!named(kind_of(output))) return difference(before, now);
    }
    const bool same_number = std::ranges::all_of(numbers, [](const auto& entry) { return entry.second == 0; });
    return cost.loss != Loss::changed || same_number ? "" : "lost: " + difference(before, now);
}

// The step after which nothing of the failure may be left: the next start.
const Step* next_start(const Run& run) {
    const auto from = run.steps.begin() + static_cast<ptrdiff_t>(run.failed_at) + 1;
    const auto found = std::find_if(from, run.steps.end(), [](const Step& step) { return step.group == "start"; });
    return found == run.steps.end() ? nullptr : &*found;
}

// The same for the differing steps together. `event` looks at them as one.
std::string beyond_cost(const Run& run, const Differing& differing, const Cost& cost, bool has_line) {
    if (cost.loss == Loss::nothing) return "it may cost nothing: " + difference(differing);
    if (cost.loss == Loss::until_start || cost.loss == Loss::for_good) {
        const Step* const start = cost.loss == Loss::until_start ? next_start(run) : nullptr;
        for (const auto& [before, now] : differing) {
            if (start != nullptr && now >= start) return "after the next start: " + difference(*before, *now);
            if (std::string more = beyond_kinds(*before, *now, cost); !more.empty()) return more;
        }
        return "";
    }
    if (std::string more = beyond_one_group(differing); !more.empty()) return more;
    if (cost.loss != Loss::event) return beyond_kinds(*differing.front().first, *differing.front().second, cost);
    const std::string much = too_much(differing, differing.front().second->group == "-");
    if (!much.empty()) return much + ": " + difference(differing);
    // A loss that no line names cannot be found at a customer. An event whose GUID could not be copied goes out, and
    // the plug-in says nothing of it.
    const bool without_guid = std::ranges::any_of(differing, [](const auto& pair) {
        return std::ranges::any_of(pair.second->outputs,
                                   [](const auto& output) { return output.ends_with(":guid-without"); });
    });
    return has_line || without_guid ? "" : "no line about it: " + difference(differing);
}

// What is still alive, held or loaded at the end.
std::string beyond_balance(const Run& baseline, const Run& run) {
    // The plug-in does not give back the interface of a DNS event when there is no memory for the copy, so this one
    // event stays alive.
    const bool keeps_dns = run.text.find("line new(std::nothrow)ST_IOC_MSG error!") != std::string::npos;
    for (const auto& [key, value] : baseline.end) {
        if (key == "calls" || key == "failed") continue;
        const auto found = run.end.find(key);
        const long now = found == run.end.end() ? -1 : found->second;
        if (key == "alive" && keeps_dns && now == value + 1) continue;
        // A result that stays in the run without a failure may be the very one that was lost here.
        if (now != value && !(key == "results" && now >= 0 && now < value))
            return "at the end " + key + "=" + std::to_string(now) + " in place of " + std::to_string(value);
    }
    return "";
}

}  // namespace

std::vector<std::string> split(const std::string& text, char at) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, at);)
        if (!part.empty() || at != ' ') parts.push_back(part);
    return parts;
}

Run parse(const std::string& text) {
    Run run;
    run.text = text;
    for (const std::string& line : split(text, '\n')) {
        const size_t space = line.find(' ');
        const std::string word = line.substr(0, space);
        const std::string rest = space == std::string::npos ? "" : line.substr(space + 1);
        if (word == "failed") {
            // A line may be cut when the process ended; a cut line tells nothing.
            run.frames = split(rest, ' ');
            if (run.frames.size() < 2) continue;
            run.call = run.frames[0];
            run.thread = run.frames[1];
            run.failed_at = run.steps.size();
            run.frames.erase(run.frames.begin(), run.frames.begin() + 2);
        } else if (word == "armed" || word == "clean") {
            // The bar added here keeps the last part when it is empty.
            const auto parts = split(rest + "|", '|');
            if (parts.size() < 3) continue;
            run.steps.push_back({parts[0], parts[1], split(parts[2], ' '), word == "armed"});
        } else if (word == "line" && !run.steps.empty()) {
            run.steps.back().lines.push_back(rest);
        } else if (word == "ended") {
            // A step like any other, for the lines behind it.
            run.ended = rest;
            run.steps.push_back({rest, "-", {}, true});
        } else if (word == "wrong") {
            run.wrong += (run.wrong.empty() ? "" : "; ") + rest;
        } else if (word == "end") {
            for (const auto& pair : split(rest, ' '))
                if (const size_t equal = pair.find('='); equal != std::string::npos)
                    run.end[pair.substr(0, equal)] = atol(pair.c_str() + equal + 1);
        }
    }
    return run;
}

std::string judge_alone(const Run& baseline, int status) {
    if (!baseline.wrong.empty()) return baseline.wrong;
    if (std::string end = crash(baseline, status); !end.empty()) return end;
    return baseline.ended.empty() && !baseline.end.empty() ? unsound(baseline) : "the run did not come to its end";
}

std::string judge(const Run& baseline, const Run& run, int status) {
    if (!run.wrong.empty()) return run.wrong;
    if (std::string end = crash(run, status); !end.empty()) return end;
    // The comparison would be true and worth nothing.
    if (run.call.empty()) return "no call failed: the run made fewer";
    const std::vector<std::string> lines = new_lines(baseline, run);
    const Cost* const cost =
        find_cost(run.call, run.failed_at < run.steps.size() ? run.steps[run.failed_at].group : "", lines);
    if (cost == nullptr) return "none of the lines that a failing " + run.call + " must give, but: " + shown(lines);
    if (cost->loss == Loss::process) return run.ended.empty() ? "the process was not ended" : "";
    if (!run.ended.empty()) return "the process was ended in step '" + run.ended + "'";
    if (run.steps.size() != baseline.steps.size() || run.end.empty()) return "the run did not come to its end";

    Differing differing;
    for (size_t i = 0; i < run.steps.size(); ++i)
        if (baseline.steps[i].outputs != run.steps[i].outputs)
            differing.emplace_back(&baseline.steps[i], &run.steps[i]);
    if (!differing.empty())
        if (std::string more = beyond_cost(run, differing, *cost, !lines.empty()); !more.empty()) return more;
    return beyond_balance(baseline, run);
}

}  // namespace sweep
