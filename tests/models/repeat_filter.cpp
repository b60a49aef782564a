// The repeat filter. The model keeps the texts of the alerts since the last forgetting.
#include "suppress/alert_filter.h"

#include <optional>
#include <set>

#include "models/model.h"

namespace models {
namespace {

enum : size_t { check, pass, forget_last };

// The borders of the minute, and what lies between them.
constexpr uint64_t kTimes[] = {0, 1, 20'000, 59'998, 59'999, 60'000, 60'001, 200'000};
// Names of which some together read like another.
constexpr const char* kRules[] = {"r", "ra", "b", "\xc3\xbf"};
constexpr const char* kImages[] = {"a", "", "/x"};
constexpr uint32_t kRuleForms = 1 + std::size(kRules) * (1U << std::size(kImages));

// An alert of up to three rules. Each number is a rule with a choice of images; 0 is none.
ST_BUF_DATA alert_of(const std::array<uint32_t, 3>& numbers) {
    ST_BUF_DATA data;
    for (const uint32_t number : numbers) {
        if (number == 0) continue;
        ST_RULE& rule = data.vecRule.emplace_back();
        rule.strRuleId = kRules[(number - 1) % std::size(kRules)];
        const uint32_t images = (number - 1) / std::size(kRules);
        for (size_t i = std::size(kImages); i-- > 0;)
            if ((images >> i & 1) != 0) rule.vecEvent.emplace_back().strImage = kImages[i];
    }
    return data;
}

std::string alert_shown(const std::array<uint32_t, 3>& numbers) {
    std::string text;
    for (const ST_RULE& rule : alert_of(numbers).vecRule) {
        text += rule.strRuleId + '{';
        for (const ST_RAW_EVENT& event : rule.vecEvent) text += '"' + event.strImage + '"';
        text += "} ";
    }
    return text;
}

std::string time_shown(const std::array<uint32_t, 3>& numbers) { return std::to_string(kTimes[numbers[0]]) + " ms"; }

// Rules in byte order, each with its images in byte order; the first rule of an id stands for all.
std::string key_of(const ST_BUF_DATA& data) {
    std::set<std::string> ids;
    for (const ST_RULE& rule : data.vecRule) ids.insert(rule.strRuleId);
    std::string key;
    for (const std::string& id : ids) {
        const ST_RULE* first = nullptr;
        for (const ST_RULE& rule : data.vecRule)
            if (first == nullptr && rule.strRuleId == id) first = &rule;
        std::set<std::string> images;
        for (const ST_RAW_EVENT& event : first->vecEvent) images.insert(event.strImage);
        key += id;
        for (const std::string& image : images) key += image;
    }
    return key;
}

void play(const Steps& steps) {
    uint64_t now = 1'000'000;
    ResHdlAlert::AlertFilter filter(now);
    uint64_t forgot_at = now;
    std::set<std::string> seen;
    std::optional<std::string> last;
    for (const Step& step : steps.list) {
        if (step.act == pass) {
            now += kTimes[step[0]];
        } else if (step.act == forget_last) {
            filter.ForgetLast();
            if (last) seen.erase(*last);
            last.reset();
        } else {
            const ST_BUF_DATA data = alert_of(step.numbers);
            const std::string key = key_of(data);
            if (now - forgot_at >= 60'000) {
                seen.clear();
                forgot_at = now;
            }
            const bool repeat = seen.contains(key);
            last.reset();
            if (!repeat && !key.empty()) last = *seen.insert(key).first;
            RC_ASSERT(filter.CheckRepeat(data, now) == repeat);
        }
    }
}

}  // namespace

const Model& repeat_filter() {
    static const Model model{"repeat filter",
                             {{"check", 6, {kRuleForms, kRuleForms, kRuleForms}, alert_shown},
                              {"pass", 3, {std::size(kTimes)}, time_shown},
                              {"forget the last", 1}},
                             200,
                             play};
    return model;
}

}  // namespace models
