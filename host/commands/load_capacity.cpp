// The search for the highest rate that the plug-in bears: it doubles the rate until it is too high, and then halves the
// distance between what is borne and what is not.
#include <fmt/format.h>

#include <algorithm>

#include "host/commands/load_run.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;

// How long a rate is tried when the command line does not say it.
constexpr std::chrono::milliseconds kUsualStep = 3s;
// The first rate that is tried, and the limits of the search. In events a second.
constexpr double kFirstRate = 500;
constexpr double kHighestRate = 1e6;
constexpr double kLowestRate = 1;
// The search ends when the two rates are that near.
constexpr double kNear = 1.05;
// A rate that was borne once is tried for longer; if it is not borne then, a lower one is tried.
constexpr int kLonger = 3;
constexpr double kLower = 0.9;

// Why a rate is too high; empty if it is not.
// The first reason that is found is told.
std::string fault_of(const LoadMeasures& measures, bool settled) {
    if (measures.refused > 0) return fmt::format("{} events were refused", measures.refused);
    if (measures.filtered > 0 || measures.dropped > 0)
        return fmt::format("{} alerts were filtered and {} traces dropped", measures.filtered, measures.dropped);
    if (!measures.kept_pace()) return fmt::format("only {:.0f} events a second could be published", measures.in_rate());
    if (measures.grows || !settled) return "what waits grows";
    return {};
}

}  // namespace

// Measures one rate, and shows the result at once unless a program reads the output.
CapacityStep LoadRun::try_rate(double per_second, std::chrono::milliseconds time) {
    CapacityStep step{per_second, {}, measure(per_second, time)};
    step.fault = fault_of(step.measures, end_.settled);
    if (!options_.json) print(step_text(step));
    // Only the measures of the result are shown in full.
    // A sample for each moment of each step would fill the memory.
    end_.steps.push_back(step);
    end_.steps.back().measures.samples.clear();
    return step;
}

// The rate counts as too high only when it is so twice: other programs on the machine may have been in the way.
// The last step that was tried gives the measures.
bool LoadRun::is_borne(double per_second, std::chrono::milliseconds time) {
    for (int tries = 2; tries > 0 && end_.settled && !end_.stopped; --tries) {
        // One good try is enough.
        const CapacityStep step = try_rate(per_second, time);
        end_.measures = step.measures;
        if (step.fault.empty()) return true;
    }
    return false;
}

// A signal, or a rate after which not all came to its end, ends the search.
// The result is the highest rate that was borne twice: once in the search and once for longer.
void LoadRun::find_capacity() {
    // The time of the command line is that of one step here.
    const auto time = options_.seconds > 0ms ? options_.seconds : kUsualStep;
    const auto goes_on = [this](double rate) {
        return end_.settled && !end_.stopped && rate >= kLowestRate && rate <= kHighestRate;
    };
    // 0 stands for none yet.
    double borne = 0;
    double too_high = 0;
    double rate = options_.rate > 0 ? options_.rate : kFirstRate;
    while (goes_on(rate) && (too_high == 0 || too_high > borne * kNear)) {
        // The rate goes to the side on which it belongs.
        (is_borne(rate, time) ? borne : too_high) = rate;
        // Doubled as long as nothing was too high, halved as long as nothing was borne. Between the
        // two it is the middle.
        rate = too_high == 0 ? 2 * borne : borne == 0 ? too_high / 2 : (borne + too_high) / 2;
    }
    // A short step may be borne only because the queues were empty. So the result is tried for
    // longer.
    for (rate = borne; goes_on(rate) && !end_.capacity; rate *= kLower)
        if (is_borne(rate, kLonger * time)) end_.capacity = rate;
}

}  // namespace zelhost
