// DNS hits, KOV alerts and requests to expand a chain. Each goes to the trace module in a way of its own. Alarm worker
// only, but for PushIocTrace, which on-demand traces use on host threads.
#include <new>

#include "common/capture.h"
#include "common/checks.h"
#include "common/common.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/reshdlevent.h"
#include "common/statistics.h"
#include "pipeline/fifoqueue_publish.h"
#include "pipeline/reshdlwork.h"
#include "trace/getprotobuf.h"

namespace {

void log_no_delay_node() { LOG_ERROR("new(std::nothrow)ST_DELAY_QUEQE_NODE failed!"); }

}  // namespace

void CReshdlWork::HandleIocEvent(NodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    zel::MallocBuffer buffer;
    const uint64_t size = CGetProtobuf::GetIocProtobuf(*pEventData, buffer);
    // A hit whose message could not be built is remembered all the same, and its repeats are tallied.
    report_repeats(g_hotCache.InsertAlert(*pEventData, GetTickMs()));
    FreeNodeData(*pEventData);
    // The flat copy is large, and the message holds all that the trace needs.
    CaptureData(buffer.get(), size, CaptureKind::ioc_alarm);
    auto sent =
        InvokeEvent(event_id::first_report, pEventData->uEventId, {std::move(buffer), size}, pEventData->szGuid);
    if (sent.event == nullptr) {
        LOG_ERROR("event invoke failed!");
        return;
    }
    pEventData->uSize = size;
    pEventData->pData = zel::copy_bytes(sent.event->payload().data(), size);
    // The message is copied by now, so the event need not wait for the trace.
    sent.event.reset();
    if (pEventData->pData == nullptr) {
        LOG_ERROR("(char*)calloc(uPbSize, sizeof(char)) failed!");
        return;
    }
    PushIocTrace(std::move(pEventData));
}

void CReshdlWork::PushIocTrace(NodePtr pNode) {
    DelayNodePtr job = new_trace_job(std::move(pNode));
    if (job == nullptr)
        log_no_delay_node();
    else
        PushDelayQueueNode(job);
}

void CReshdlWork::HandleKovEvent(NodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    DelayNodePtr job(new (std::nothrow) ST_DELAY_QUEQE_NODE);
    if (job == nullptr) {
        log_no_delay_node();
        return;
    }
    // tPushTime stays 0: the first step runs at once, and a retry sets the time.
    job->uType = event_id::first_report;
    job->pNode = std::move(pEventData);
    count(g_statistics.firstTraceTotalCount);
    // On the alarm worker: the first report of a KOV alert is what the module makes of it, so there is nothing to send
    // before.
    HandleKovEventEx(std::move(job));
}

void CReshdlWork::HandleTrcExEvent(NodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    TraceResult result;
    // In a reset period there is no module, and so no result.
    if (const auto module = g_trcModule.get(); module != nullptr && module->trace_event_expand_from_mgr != nullptr)
        result.take(module->trace_event_expand_from_mgr, pEventData->pData.get(), pEventData->uSize);
    FreeNodeData(*pEventData);
    auto sent = InvokeEvent(event_id::finished_trace, pEventData->uEventId, std::move(result), pEventData->szGuid);
    if (sent.event != nullptr) return;
    LOG_ERROR("trc_ex event invoke failed!");
    sent.refused.give_back();
}
