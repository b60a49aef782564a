// The scenario scan: which processes of an alert are to be checked for foreign code, with a brake on busy rules.
#include "common/common.h"
#include "common/log.h"
#include "decode/alert_types.h"
#include "decode/ioainfo_memdetect.h"
#include "pipeline/reshdlwork.h"

namespace {

constexpr int64_t kHourMs = 3600000;
constexpr uint32_t kSubjectAndObject = memory_check::subject | memory_check::object;

}  // namespace

void CReshdlWork::ScanScenario(const ST_BUF_DATA& stData) {
    if (stData.nAlertType != alert_type::ioa) return;
    std::set<uint32_t> done;  // one check for each process and alert
    bool allowed = false;
    for (const ST_RULE& rule : stData.vecRule) {
        CountRuleMatch(rule.strRuleId);
        if (is_rule_within_limit(rule.strRuleId)) allowed = true;
        for (const ST_RAW_EVENT& event : rule.vecEvent) InvokeMemDetect(event, event.uPostOpr, rule.nConfidence, done);
    }
    if (!allowed) {
        LOG_INFO("ioa rule match times out of limit, skip scenario scan");
        return;
    }
    for (const ST_RAW_EVENT& event : stData.vecProcessSet) InvokeMemDetect(event, kSubjectAndObject, 0, done);
}

bool CReshdlWork::is_rule_within_limit(const std::string& strRuleId) const {
    const auto found = m_mapIoaMatch.find(strRuleId);
    const uint64_t matches = found == m_mapIoaMatch.end() ? 0 : found->second;
    return matches <= m_uDisableScanScenarioLimit.load(std::memory_order_relaxed);
}

void CReshdlWork::CountRuleMatch(const std::string& strRuleId) {
    m_listIoaMatch.emplace_back(GetTickMs(), strRuleId);
    ++m_mapIoaMatch[strRuleId];
    // Signed: the machine may be up for less than an hour.
    const int64_t limit_time = static_cast<int64_t>(GetTickMs()) - kHourMs;
    while (!m_listIoaMatch.empty() && (static_cast<int64_t>(m_listIoaMatch.front().first) < limit_time ||
                                       m_listIoaMatch.size() > m_uIoaMatchQueueSize.load(std::memory_order_relaxed))) {
        const auto oldest = m_mapIoaMatch.find(m_listIoaMatch.front().second);
        if (--oldest->second == 0) m_mapIoaMatch.erase(oldest);
        m_listIoaMatch.pop_front();
    }
}
