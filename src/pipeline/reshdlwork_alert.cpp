// The road of an alert document, events 1536 and 1538: decode, filter, first report, trace job.
#include <strings.h>

#include <algorithm>
#include <new>

#include "common/capture.h"
#include "common/checks.h"
#include "common/log.h"
#include "common/reshdlevent.h"
#include "common/statistics.h"
#include "decode/alert_types.h"
#include "decode/jsonparse.h"
#include "pipeline/reshdlwork.h"
#include "suppress/alert_filter.h"
#include "trace/getprotobuf.h"

using ResHdlAlert::AlertFilter;

namespace {

// Owns a decoded document. The records behind its events are freed on every way out.
struct Document {
    Document() = default;
    ~Document() { FreeBufData(data); }
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    ST_BUF_DATA data;
};

bool is_trigger(const ST_RULE& rule) { return rule.strStatus == "Trigger"; }

// FreeBufData does not see a rule that was removed, so its records are freed here.
void remove_trigger_rules(std::vector<ST_RULE>& rules) {
    for (ST_RULE& rule : rules)
        if (is_trigger(rule)) std::for_each(rule.vecEvent.begin(), rule.vecEvent.end(), FreeEventPrivate);
    std::erase_if(rules, is_trigger);
}

// Without regard to case: "xdr-ioa-1" counts as well.
bool is_xdr_rule(const ST_RULE& rule) { return strncasecmp(rule.strRuleId.c_str(), "XDR-IOA-", 8) == 0; }

}  // namespace

void CReshdlWork::HandleJsonEvent(NodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    Document document;
    ST_BUF_DATA& data = document.data;
    const char* const guid = pEventData->szGuid;

    if (!CEventHandle::GetJsonInfo(pEventData.get(), data)) {
        LOG_ERROR("GetJsonInfo failed!");
        return;
    }
    if (IsAlertFiltered(data)) {
        LOG_WARN("The alarm has been filtered.[%s], guid:%s", data.strScenarioId.c_str(), guid);
        return;
    }
    // Before the trigger rules go: their processes are checked, too.
    if (pEventData->uEventId == event_id::ioa_alert) ScanScenario(data);
    remove_trigger_rules(data.vecRule);
    if (data.vecRule.empty()) {
        LOG_INFO("Trigger rule only, skip. guid:%s", guid);
        return;
    }
    report_alert(*pEventData, data);
}

void CReshdlWork::report_alert(const ST_QUEQE_NODE& stNode, ST_BUF_DATA& stData) {
    const char* const guid = stNode.szGuid;
    // A repeat is still reported, but marked in its message and without a trace.
    count(g_statistics.alertEventTotalCount);
    const bool filtered = value_of(m_settings.uAlertFilterSwitch) != 0;
    const bool repeated = filtered && AlertFilter::GetInstance().CheckRepeat(stData, zel_time_get_tick_cout());
    if (repeated) {
        count(g_statistics.alertEventFilterCount);
        LOG_INFO("The alert has been repeated. guid:%s", guid);
    }

    const bool on_host = stData.strContainerId == "host" || stData.strContainerId.empty();
    int nProcessCount = 0;
    int nRiskLevel = 0;
    uint64_t size = 0;
    zel::MallocBuffer buffer;
    try {
        size = CGetProtobuf::GetComProtobuf(stData, repeated, buffer, nProcessCount, nRiskLevel, stNode.uEventId);
    } catch (...) {
        if (filtered) AlertFilter::GetInstance().ForgetLast();  // the next alert like this lost one is no repeat
        throw;
    }
    if (!is_built(size)) return;
    CaptureData(buffer.get(), size, CaptureKind::ioa_alarm);
    const auto sent = InvokeEvent(event_id::first_report, stNode.uEventId, {std::move(buffer), size}, guid);
    if (sent.event == nullptr) {
        LOG_ERROR("event invoke failed! guid:%s", guid);
        return;
    }
    count(g_statistics.sentToMbCount);
    if (!repeated && on_host) {
        LOG_INFO("host alert,trace");
        // The event is still held here, so its message can be copied for the trace.
        HandleJsonEventResult(nProcessCount, nRiskLevel, sent.event->payload().data(), size, stNode);
    } else {
        LOG_INFO("container alert, not trace. guid:%s", guid);  // for repeats, too
    }
}

// The test is inclusive: exactly half of the limit counts as busy with trace_val 50, and with trace_val 0 every such
// alert is dropped. An alert without any rule counts as one with XDR rules alone.
bool CReshdlWork::IsAlertFiltered(const ST_BUF_DATA& stData) {
    if (stData.nAlertType != alert_type::ioa) return false;
    if (!std::all_of(stData.vecRule.begin(), stData.vecRule.end(), is_xdr_rule)) return false;
    return m_delayQueue.size() >= value_of(m_settings.uTraceVal) * value_of(m_settings.uQueueMax) / 100;
}

void CReshdlWork::HandleJsonEventResult(int nProcessCount, int nRiskLevel, const char* pInBuf, uint64_t uSize,
                                        const ST_QUEQE_NODE& stNode) {
    // Each failure below costs the trace alone. The first report has gone out.
    ZEL_ASSERT(pInBuf);
    DelayNodePtr job = new_trace_job(nullptr);
    if (job == nullptr) {
        LOG_ERROR("new(std::nothrow)ST_DELAY_QUEQE_NODE");
        return;
    }
    job->pNode.reset(new (std::nothrow) ST_QUEQE_NODE);
    if (job->pNode == nullptr) {
        LOG_ERROR("new(std::nothrow)ST_QUEQE_NODE");
        return;
    }
    ST_QUEQE_NODE& node = *job->pNode;
    node.pData = zel::copy_bytes(pInBuf, uSize);  // the message itself belongs to the event
    if (node.pData == nullptr) {
        LOG_ERROR("(char*)calloc(uPbSize, sizeof(char)) failed!");
        return;
    }
    node.uEventId = stNode.uEventId;
    node.uSize = uSize;
    std::copy(std::begin(stNode.szGuid), std::end(stNode.szGuid), node.szGuid);
    job->nProcessCount = nProcessCount;
    job->nRiskLevel = nRiskLevel;
    PushDelayQueueNode(job);
}
