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

constexpr std::chrono::milliseconds kUsualStep = 3s;
constexpr double kFirstRate = 500;
constexpr double kHighestRate = 1e6;
constexpr double kLowestRate = 1;
// The search ends when the two rates are that near.
constexpr double kNear = 1.05;
// A rate that was borne once is tried for longer; if it is not borne then, a lower one is tried.
constexpr int kLonger = 3;
constexpr double kLower = 0.9;

// Why a rate is too high; empty if it is not.
std::string fault_of(const LoadMeasures& measures, bool settled) {
    if (measures.refused > 0) return fmt::format("{} events were refused", measures.refused);
    if (measures.filtered > 0 || measures.dropped > 0)
        return fmt::format("{} alerts were filtered and {} traces dropped", measures.filtered, measures.dropped);
    if (!measures.kept_pace()) return fmt::format("only {:.0f} events a second could be published", measures.in_rate());
    if (measures.grows || !settled) return "what waits grows";
    return {};
}

}  // namespace

CapacityStep LoadRun::try_rate(double per_second, std::chrono::milliseconds time) {
    CapacityStep step{per_second, {}, measure(per_second, time)};
    step.fault = fault_of(step.measures, end_.settled);
    if (!options_.json) print(step_text(step));
    // Only the measures of the result are shown in full.
    end_.steps.push_back(step);
    end_.steps.back().measures.samples.clear();
    return step;
}

// The rate counts as too high only when it is so twice: other programs on the machine may have been in the way.
bool LoadRun::is_borne(double per_second, std::chrono::milliseconds time) {
    for (int tries = 2; tries > 0 && end_.settled && !end_.stopped; --tries) {
        const CapacityStep step = try_rate(per_second, time);
        end_.measures = step.measures;
        if (step.fault.empty()) return true;
    }
    return false;
}

// A signal, or a rate after which not all came to its end, ends the search.
void LoadRun::find_capacity() {
    const auto time = options_.seconds > 0ms ? options_.seconds : kUsualStep;
    const auto goes_on = [this](double rate) {
        return end_.settled && !end_.stopped && rate >= kLowestRate && rate <= kHighestRate;
    };
    double borne = 0;
    double too_high = 0;
    double rate = options_.rate > 0 ? options_.rate : kFirstRate;
    while (goes_on(rate) && (too_high == 0 || too_high > borne * kNear)) {
        (is_borne(rate, time) ? borne : too_high) = rate;
        rate = too_high == 0 ? 2 * borne : borne == 0 ? too_high / 2 : (borne + too_high) / 2;
    }
    for (rate = borne; goes_on(rate) && !end_.capacity; rate *= kLower)
        if (is_borne(rate, kLonger * time)) end_.capacity = rate;
}

}  // namespace zelhost
