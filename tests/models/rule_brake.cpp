// The brake on busy rules. The model is the list of all matches.
#include "pipeline/rule_brake.h"

#include <algorithm>
#include <deque>
#include <utility>

#include "models/model.h"

namespace models {
namespace {

enum : size_t { match, pass, expire, clear };

constexpr uint64_t kHourMs = 3'600'000;
constexpr uint64_t kTimes[] = {0, 1, 60'000, kHourMs / 2, kHourMs - 1, kHourMs, kHourMs + 1};
constexpr uint32_t kRules = 5;
constexpr uint32_t kMostLimit = 40;

std::string time_shown(const std::array<uint32_t, 3>& numbers) { return std::to_string(kTimes[numbers[0]]) + " ms"; }

std::string rule_of(uint32_t number) { return "rule " + std::to_string(number); }

void play(const Steps& steps) {
    uint64_t now = 0;  // the machine has just begun, so an hour ago is before its time
    RuleBrake brake;
    std::deque<std::pair<uint64_t, uint32_t>> matches;  // time and rule, the oldest first
    for (const Step& step : steps.list) {
        if (step.act == match) {
            brake.CountRuleMatch(rule_of(step[0]), now);
            matches.emplace_back(now, step[0]);
        } else if (step.act == pass) {
            now += kTimes[step[0]];
        } else if (step.act == expire) {
            brake.expire(now, step[0]);
            std::erase_if(matches, [&](const auto& entry) { return now - entry.first > kHourMs; });
            while (matches.size() > step[0]) matches.pop_front();
        } else {
            brake.clear();
            matches.clear();
        }
        for (uint32_t rule = 0; rule <= kRules; ++rule) {
            const auto count = static_cast<uint64_t>(
                std::ranges::count_if(matches, [&](const auto& entry) { return entry.second == rule; }));
            RC_ASSERT(brake.is_within(rule_of(rule), count));
            RC_ASSERT(count == 0 || !brake.is_within(rule_of(rule), count - 1));
        }
    }
}

}  // namespace

const Model& rule_brake() {
    static const Model model{"rule brake",
                             {{"match", 12, {kRules}},
                              {"pass", 4, {std::size(kTimes)}, time_shown},
                              {"expire", 4, {kMostLimit}},
                              {"clear", 1}},
                             200,
                             play};
    return model;
}

}  // namespace models
