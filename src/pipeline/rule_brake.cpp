#include "pipeline/rule_brake.h"

namespace {

constexpr int64_t kHourMs = 3600000;

}  // namespace

// The map gets the rule before the list names it, so no element of the list can lead to nothing.
void RuleBrake::CountRuleMatch(const std::string& strRuleId, uint64_t now) {
    const auto [rule, is_new] = m_mapIoaMatch.try_emplace(strRuleId, 0);
    try {
        m_listIoaMatch.emplace_back(now, rule);
    } catch (...) {
        if (is_new) m_mapIoaMatch.erase(rule);
        throw;
    }
    ++rule->second;
}

void RuleBrake::expire(uint64_t now, uint64_t most) {
    // Signed, because a machine may be up for less than an hour.
    const int64_t limit_time = static_cast<int64_t>(now) - kHourMs;
    while (!m_listIoaMatch.empty() &&
           (static_cast<int64_t>(m_listIoaMatch.front().first) < limit_time || m_listIoaMatch.size() > most)) {
        const auto rule = m_listIoaMatch.front().second;
        if (--rule->second == 0) m_mapIoaMatch.erase(rule);
        m_listIoaMatch.pop_front();
    }
}

bool RuleBrake::is_within(const std::string& strRuleId, uint64_t limit) const {
    const auto found = m_mapIoaMatch.find(strRuleId);
    return (found == m_mapIoaMatch.end() ? 0 : found->second) <= limit;
}

// The list goes first, because its elements lead into the map.
void RuleBrake::clear() {
    m_listIoaMatch.clear();
    m_mapIoaMatch.clear();
}
