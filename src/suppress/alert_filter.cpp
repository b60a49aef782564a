#include "suppress/alert_filter.h"

#include <map>
#include <set>
#include <string_view>

#include "common/log.h"
#include "common/never_ends.h"

namespace ResHdlAlert {
namespace {

// A period is over at 60000 ms.
constexpr uint64_t kLongestWindowMs = 59999;

}  // namespace

AlertFilter& AlertFilter::GetInstance() {
    std::optional<AlertFilter>& filter = place();
    if (!filter.has_value()) filter.emplace(zel_time_get_tick_cout());
    return *filter;
}

std::optional<AlertFilter>& AlertFilter::place() {
    static constinit zel::NeverEnds<std::optional<AlertFilter>> filter;
    return *filter;
}

// All keys go at once, so no key needs a time of its own. A key therefore lives from a moment to a minute, or longer
// while no alert arrives.
void AlertFilter::clean_if_due(uint64_t now) {
    if (now - last_clean_ms_ <= kLongestWindowMs) return;
    cache_.clear();
    LOG_INFO("clean alert event cache once.");
    last_clean_ms_ = now;
}

bool AlertFilter::CheckRepeat(const ST_BUF_DATA& stData, uint64_t now) {
    last_.reset();
    clean_if_due(now);
    std::string key = cal_alert_key(stData);
    if (key.empty()) {
        LOG_ERROR("cal_alert_key failed!");
        return false;
    }
    const auto [entry, is_new] = cache_.insert(std::move(key));
    if (is_new) {
        last_ = entry;
    } else {
        LOG_DEBUG("repeat alert event! guid: %s", stData.strGuid.c_str());
    }
    return !is_new;
}

void AlertFilter::ForgetLast() {
    if (last_.has_value()) cache_.erase(*last_);
    last_.reset();
}

std::string AlertFilter::cal_alert_key(const ST_BUF_DATA& stData) {
    // The containers sort, so two alerts with the same rules in another order have the same key. Views are enough: the
    // alert outlives this function.
    std::map<std::string_view, std::set<std::string_view>> images_of_rule;
    for (const ST_RULE& rule : stData.vecRule) {
        const auto [entry, is_new] = images_of_rule.try_emplace(rule.strRuleId);
        if (!is_new) continue;  // the first rule of an id stands
        // One process causes many events in a row; comparing two texts is cheaper than a search.
        const std::string* last = nullptr;
        for (const ST_RAW_EVENT& event : rule.vecEvent) {
            if (last == nullptr || *last != event.strImage) entry->second.insert(event.strImage);
            last = &event.strImage;
        }
    }
    std::string key;
    for (const auto& [rule_id, images] : images_of_rule) {
        key += rule_id;
        for (const std::string_view image : images) key += image;
    }
    return key;
}

}  // namespace ResHdlAlert
