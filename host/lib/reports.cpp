#include "host/lib/reports.h"

#include <algorithm>

#include "host/lib/failure.h"
#include "host/lib/json_text.h"

namespace zelhost {
namespace {

// How a figure of one report joins that of the reports before. A prediction of 0 says that there was nothing to
// predict.
uint64_t sum_up(uint64_t sum, uint64_t value) { return sum + value; }
uint64_t greatest(uint64_t sum, uint64_t value) { return std::max(sum, value); }
uint64_t latest(uint64_t sum, uint64_t value) { return value != 0 ? value : sum; }

// Keys that are not summed up. An average is made anew from the sums.
struct Rule {
    std::string_view key;
    uint64_t (*join)(uint64_t, uint64_t);
};
constexpr Rule kRules[] = {
    {"ioaTrunkTracePredict", latest},
    {"ioaFullTracePredict", latest},
    {"maxCost", greatest},
};

}  // namespace

// A report is one JSON member: the module's name, and objects of figures in it. Text values are left out.
void Reports::add(std::string_view text) {
    // The module reports a member without braces around it.
    const std::string object = "{" + std::string(text) + "}";
    const JsonText whole(object);
    if (whole.members().size() != 1) throw Failure("the plug-in's report is no JSON member: {}", text);
    const JsonText report(whole.members().front().raw);
    // A report has parts, and each part is an object of figures.
    for (const auto& part : report.members()) {
        const JsonText figures(part.raw);
        for (const auto& figure : figures.members()) {
            if (!figure.whole) continue;
            const auto* rule = std::ranges::find(kRules, figure.key, &Rule::key);
            uint64_t& sum = entry(figure.key);
            sum = (rule == std::end(kRules) ? sum_up : rule->join)(sum, static_cast<uint64_t>(*figure.whole));
        }
    }
    // The plug-in's own average is of one report alone.
    if (const uint64_t successes = figure("successCount")) entry("avgCost") = figure("traceCost") / successes;
    ++count_;
}

// A list and not a map: people read the figures in the order of the report.
uint64_t& Reports::entry(std::string_view key) {
    const auto found = std::ranges::find(figures_, key, &std::pair<std::string, uint64_t>::first);
    return found != figures_.end() ? found->second : figures_.emplace_back(key, 0).second;
}

// 0 for a figure that no report has had.
uint64_t Reports::figure(std::string_view key) const {
    const auto found = std::ranges::find(figures_, key, &std::pair<std::string, uint64_t>::first);
    return found == figures_.end() ? 0 : found->second;
}

}  // namespace zelhost
