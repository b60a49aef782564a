#include "reports.h"

#include <rapidjson/document.h>

#include <algorithm>

#include "failure.h"

namespace zel {
namespace {

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

void Reports::add(std::string_view text) {
    const std::string object = "{" + std::string(text) + "}";
    rapidjson::Document document;
    document.Parse(object.data(), object.size());
    if (document.HasParseError() || !document.IsObject() || document.MemberCount() != 1 ||
        !document.MemberBegin()->value.IsObject())
        throw Failure("the plug-in's report is no JSON member: {}", text);

    for (const auto& part : document.MemberBegin()->value.GetObject()) {
        if (!part.value.IsObject()) continue;
        for (const auto& [name, value] : part.value.GetObject()) {
            if (!value.IsUint64()) continue;
            const std::string_view key(name.GetString(), name.GetStringLength());
            const auto* rule = std::ranges::find(kRules, key, &Rule::key);
            uint64_t& sum = entry(key);
            sum = (rule == std::end(kRules) ? sum_up : rule->join)(sum, value.GetUint64());
        }
    }
    if (const uint64_t successes = figure("successCount")) entry("avgCost") = figure("traceCost") / successes;
    ++count_;
}

uint64_t& Reports::entry(std::string_view key) {
    const auto found = std::ranges::find(figures_, key, &std::pair<std::string, uint64_t>::first);
    return found != figures_.end() ? found->second : figures_.emplace_back(key, 0).second;
}

uint64_t Reports::figure(std::string_view key) const {
    const auto found = std::ranges::find(figures_, key, &std::pair<std::string, uint64_t>::first);
    return found == figures_.end() ? 0 : found->second;
}

}  // namespace zel
