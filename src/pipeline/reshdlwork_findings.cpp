// Findings that end at the first report: port scans, brute force, abnormal logins, results of detection analysis. Alarm
// worker only.
#include "common/checks.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/reshdlevent.h"
#include "pipeline/reshdlwork.h"
#include "trace/getprotobuf.h"

namespace {

// A finding that cannot be sent is lost with an ERROR line; there is nobody to try again.
void send_finding(const ST_QUEQE_NODE& node, EVENT_ID type, zel::MallocBuffer buffer, uint64_t size) {
    const auto sent = InvokeEvent(type, node.uEventId, {std::move(buffer), size}, node.szGuid);
    if (sent.event == nullptr) LOG_ERROR("event invoke failed!");
}

}  // namespace

bool CReshdlWork::is_built(uint64_t size, std::source_location where) {
    if (size == 0) LOG_ERROR_AT(where, "Get com protobuf failed!");
    return size > 0;
}

void CReshdlWork::HandleBFEvent(NodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    zel::MallocBuffer buffer;
    const uint64_t size = CGetProtobuf::GetBfProtobuf(*pEventData, buffer);
    if (!is_built(size)) return;
    // The spare byte behind the payload terminates the text.
    LOG_INFO("event_id:%lu, data:\r\n %s.", static_cast<unsigned long>(pEventData->uEventId), pEventData->pData.get());
    send_finding(*pEventData, event_id::first_report, std::move(buffer), size);
}

void CReshdlWork::HandleDetanalEvent(NodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    zel::MallocBuffer buffer;
    const uint64_t size = CGetProtobuf::GetDetanalProtobuf(*pEventData, buffer);
    if (!is_built(size)) return;
    LOG_INFO("event_id:%lu, data_size:%llu.", static_cast<unsigned long>(pEventData->uEventId),
             static_cast<unsigned long long>(pEventData->uSize));
    // A credible event has an outgoing id of its own, 771.
    const EVENT_ID type =
        pEventData->uEventId == event_id::credible_event ? event_id::credible_report : event_id::first_report;
    send_finding(*pEventData, type, std::move(buffer), size);
}
