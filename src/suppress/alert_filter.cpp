#include "suppress/alert_filter.h"

#include <map>
#include <memory>
#include <set>
#include <string_view>

#include "common/log.h"

namespace ResHdlAlert {
namespace {

constexpr uint64_t kLongestWindowMs = 59999;

// Its owner is made at load and so goes after the pipeline, whose worker may run until then.
std::unique_ptr<AlertFilter> g_instance;

}  // namespace

AlertFilter& AlertFilter::GetInstance() {
    static AlertFilter& instance = *(g_instance = std::make_unique<AlertFilter>());
    return instance;
}

AlertFilter::AlertFilter() : last_clean_ms_(zel_time_get_tick_cout()) {}

// All keys go at once, so a key lives from a moment to a minute, or longer while no alert arrives.
void AlertFilter::clean_if_due() {
    const uint64_t now = zel_time_get_tick_cout();
    if (now - last_clean_ms_ <= kLongestWindowMs) return;
    cache_.clear();
    LOG_INFO("clean alert event cache once.");
    last_clean_ms_ = now;
}

bool AlertFilter::CheckRepeat(const ST_BUF_DATA& stData) {
    clean_if_due();
    std::string key = cal_alert_key(stData);
    if (key.empty()) {
        LOG_ERROR("cal_alert_key failed!");
        return false;
    }
    const bool repeat = !cache_.insert(std::move(key)).second;
    if (repeat) LOG_DEBUG("repeat alert event! guid: %s", stData.strGuid.c_str());
    return repeat;
}

std::string AlertFilter::cal_alert_key(const ST_BUF_DATA& stData) {
    std::map<std::string_view, std::set<std::string_view>> images_of_rule;
    for (const ST_RULE& rule : stData.vecRule) {
        const auto [entry, is_new] = images_of_rule.try_emplace(rule.strRuleId);
        if (!is_new) continue;  // the first rule of an id stands
        for (const ST_RAW_EVENT& event : rule.vecEvent) entry->second.insert(event.strImage);
    }
    std::string key;
    for (const auto& [rule_id, images] : images_of_rule) {
        key += rule_id;
        for (const std::string_view image : images) key += image;
    }
    return key;
}

}  // namespace ResHdlAlert
