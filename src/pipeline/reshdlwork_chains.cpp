// DNS hits, KOV alerts and requests to expand a chain: three ways to the trace module.
#include <new>

#include "common/capture.h"
#include "common/checks.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/reshdlevent.h"
#include "common/statistics.h"
#include "pipeline/handler_support.h"
#include "pipeline/reshdlwork.h"
#include "suppress/fifoqueue.h"
#include "trace/getprotobuf.h"

namespace {

void log_no_delay_node() { LOG_ERROR("new(std::nothrow)ST_DELAY_QUEQE_NODE failed!"); }

}  // namespace

void CReshdlWork::HandleIocEvent(NodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    zel::MallocBuffer buffer;
    const uint64_t size = CGetProtobuf::GetIocProtobuf(*pEventData, buffer);
    // A hit whose message could not be built is remembered all the same, and its repeats are tallied.
    g_hotCache.InsertAlert(*pEventData);
    FreeNodeData(pEventData.get());
    CaptureData(buffer.get(), size, CaptureKind::ioc_alarm);
    const char* const message = buffer.get();
    const auto event = publish_built(event_id::first_report, *pEventData, buffer, size);
    if (event == nullptr) {
        LOG_ERROR("event invoke failed!");
        return;
    }
    zel::MallocBuffer copy = copy_message(message, size);
    if (copy == nullptr) {
        LOG_ERROR("(char*)calloc(uPbSize, sizeof(char)) failed!");
        return;
    }
    pEventData->uSize = size;
    pEventData->pData = copy.release();
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
    job->uType = event_id::first_report;
    job->pNode = std::move(pEventData);
    count(g_statistics.firstTraceTotalCount);
    HandleKovEventEx(std::move(job));
}

void CReshdlWork::HandleTrcExEvent(NodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    TraceResult result;
    {
        // In a reset period there is no module, and so no result.
        const auto table = g_trcModule.get();
        if (table != nullptr && table->trace_event_expand_from_mgr != nullptr)
            result.take(table->trace_event_expand_from_mgr, pEventData->pData, pEventData->uSize);
    }
    const EVENT_ID id = pEventData->uEventId;
    const std::string guid = pEventData->szGuid;
    pEventData.reset();
    const auto event = InvokeEvent(event_id::finished_trace, id, result.data(), result.size(),
                                   ReshdlEventTrace::EDataType::trace_module, guid.c_str());
    if (event == nullptr) {
        LOG_ERROR("trc_ex event invoke failed!");
        result.give_back();
        return;
    }
    result.hand_over();
}
