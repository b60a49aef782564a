// The scenario scan: which processes of an alert are checked for foreign code. Alarm worker only.
#include "common/common.h"
#include "common/log.h"
#include "decode/alert_types.h"
#include "pipeline/ioainfo_memdetect.h"
#include "pipeline/reshdlwork.h"

namespace {

constexpr uint32_t kSubjectAndObject = memory_check::subject | memory_check::object;

}  // namespace

void CReshdlWork::ScanScenario(const ST_BUF_DATA& stData) {
    if (stData.nAlertType != alert_type::ioa) return;
    const uint64_t limit = value_of(m_settings.uDisableScanScenarioLimit);
    std::set<uint32_t> done;  // one check for each process and alert
    bool allowed = false;
    for (const ST_RULE& rule : stData.vecRule) {
        // Every rule counts, also one that is over its limit: the hour is one of matches and not of scans.
        m_brake.CountRuleMatch(rule.strRuleId, GetTickMs());
        m_brake.expire(GetTickMs(), value_of(m_settings.uIoaMatchQueueSize));
        if (m_brake.is_within(rule.strRuleId, limit)) allowed = true;
        // What a rule asks for itself is checked whatever the brake says.
        for (const ST_RAW_EVENT& event : rule.vecEvent) InvokeMemDetect(event, event.uPostOpr, rule.nConfidence, done);
    }
    if (!allowed) {
        LOG_INFO("ioa rule match times out of limit, skip scenario scan");
        return;
    }
    // One rule within its limit is enough. The scenario's processes have no confidence of their own.
    for (const ST_RAW_EVENT& event : stData.vecProcessSet) InvokeMemDetect(event, kSubjectAndObject, 0, done);
}
