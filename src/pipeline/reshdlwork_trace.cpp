// The trace stage: the road of a trace job from its first push to a finished trace, a callback or a discard. The
// eliminator is told of each end but one: a stop discards what is queued and clears the eliminator as a whole.
#include <array>
#include <cstring>
#include <ctime>
#include <new>

#include "common/capture.h"
#include "common/checks.h"
#include "common/guard.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/reshdlevent.h"
#include "common/statistics.h"
#include "pipeline/reshdlwork.h"
#include "platform/native_payloads.h"

namespace {

// What the host's callback gets as its code.
constexpr int kFileTraceCode = 8;
constexpr int32_t kFailed = -1;

bool is_file_trace(EVENT_ID id) { return id == event_id::file_trace_process || id == event_id::file_trace_file; }

// Runs a function of the module on the node's message and measures it in milliseconds of the tick clock. When the
// module throws, the trace has failed like any other: the eliminator must learn of its end, or the alert would weigh
// for ever.
int32_t measured_call(trace_event_work_t work, const ST_QUEQE_NODE& node, TraceResult& result, int& cost) {
    int32_t hr = kFailed;
    const uint64_t before = zel_time_get_tick_cout();
    zel::guarded("call of the trace module", [&] { hr = result.take(work, node.pData.get(), node.uSize); });
    cost = static_cast<int>(zel_time_get_tick_cout() - before);
    return hr;
}

void count_success(uint32_t try_count, int cost) {
    const auto milliseconds = static_cast<uint64_t>(cost);
    count(g_liveTraceCost.traceCost, milliseconds);
    count(g_liveTraceCost.successCount);
    // A job from a queue was pushed at least once. So only a KOV alert that is completed at its very first attempt
    // counts here.
    if (try_count == 0) count(g_liveTraceCost.firstSuccessCount);
    // Two workers may race here, and the smaller cost may win; figures may be a little off.
    if (milliseconds > g_liveTraceCost.maxCost.load(std::memory_order_relaxed))
        g_liveTraceCost.maxCost.store(milliseconds, std::memory_order_relaxed);
}

ETrcResult log_failed(const char* guid) {
    count(g_statistics.traceFailedCount);
    LOG_INFO("alert trace failed, guid:%s", guid);
    return TRC_FAILED;
}

// The record is packed. A leak checker does not find pointers in it, so each of them is named.
void leave_event(MbFrame::IEvent* event) {
    ST_PB_EVENT native;
    memcpy(&native, event->GetNativeEvent(), sizeof native);
    zel::leave_allocated(native.pData);
    zel::leave_allocated(native.pszGuid);
    zel::leave_allocated(event);
}

}  // namespace

DelayNodePtr CReshdlWork::new_trace_job(NodePtr node) {
    DelayNodePtr job(new (std::nothrow) ST_DELAY_QUEQE_NODE);
    if (job == nullptr) return nullptr;
    job->uType = event_id::finished_trace;
    job->tPushTime = time(nullptr);
    job->pNode = std::move(node);
    return job;
}

bool CReshdlWork::PushDelayQueueNode(DelayNodePtr& pEventData) {
    ZEL_ASSERT(pEventData);
    ST_DELAY_QUEQE_NODE& node = *pEventData;
    const uint64_t most_tries = value_of(m_settings.uTrcTimes);
    // Tracing is turned off. The caller frees the job.
    if (most_tries == 0) return false;

    // The cell is made first: nothing can fail once the eliminator knows the node.
    DelayQueue::Cell cell = DelayQueue::make_cell();
    if (cell.empty()) {
        LOG_ERROR("no memory to queue a trace, guid:%s", node.pNode->szGuid);
        return false;
    }
    const bool first = node.uTryCount == 0;
    if (first) {
        // Before the queue can give the node away: the trace worker may finish and free it at once. A closed queue
        // refuses only on-demand traces, because the workers are joined by then, and the eliminator does not track
        // those. So nothing has to be taken back.
        m_eliminator.Push(&node);
    }
    ++node.uTryCount;
    // Inclusive: with trc_times 8 a job is pushed eight times, and the ninth push discards it.
    if (!first && node.uTryCount > most_tries) {
        LOG_DEBUG("Try more than %d times, discard! guid:%s", static_cast<int>(most_tries), node.pNode->szGuid);
        return false;
    }
    cell.front() = std::move(pEventData);
    if (!(first ? m_trcQueue : m_delayQueue).push(cell)) {
        pEventData = std::move(cell.front());
        return false;
    }
    count(first ? g_statistics.firstTraceTotalCount : g_statistics.delayedTraceTotalCount);
    return true;
}

void CReshdlWork::HandleDelayEvent(DelayNodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    switch (pEventData->uType) {
        case event_id::first_report: return HandleKovEventEx(std::move(pEventData));
        case event_id::finished_trace: return HandleEventResult(std::move(pEventData));
        default: return;
    }
}

ETrcResult CReshdlWork::GetKovAlarm(DelayNodePtr& pEventData, TraceResult& result) {
    ZEL_ASSERT(pEventData);
    const auto table = g_trcModule.get();
    if (table == nullptr || table->trace_event_process_completion == nullptr) {
        LOG_ERROR("zeltrc comp function is null.");
        return TRC_RETRY;
    }
    int cost = 0;
    const int32_t hr = measured_call(table->trace_event_process_completion, *pEventData->pNode, result, cost);
    return TrcRetHandle(hr, pEventData, result, cost);
}

ETrcResult CReshdlWork::GetComResult(DelayNodePtr& pEventData, TraceResult& result) {
    ZEL_ASSERT(pEventData);
    int cost = 0;
    int32_t hr = ZEL_TRC_DROPPED;
    // A trace that was shed does not reach the module; it ends as the module's own "dropped" does.
    if (!pEventData->bDropped.load(std::memory_order_relaxed)) {
        // Without the module, which a failed reload leaves away, the trace fails like any other.
        const auto table = g_trcModule.get();
        hr = table != nullptr && table->trace_event_create_by_alert != nullptr
                 ? measured_call(table->trace_event_create_by_alert, *pEventData->pNode, result, cost)
                 : -1;
    }
    return TrcRetHandle(hr, pEventData, result, cost);
}

ETrcResult CReshdlWork::TrcRetHandle(int32_t hr, DelayNodePtr& pEventData, TraceResult& result, int cost) {
    ZEL_ASSERT(pEventData);
    // Once the node is queued, the other worker may finish and free it before the line about it is written.
    const std::array<char, kGuidSize + 1> kept = std::to_array(pEventData->pNode->szGuid);
    const char* const guid = kept.data();
    ETrcResult outcome = TRC_FAILED;
    switch (hr) {
        case ZEL_TRC_NOT_READY:
            // Before the push, because the trace worker reads it from the queue.
            pEventData->tPushTime = time(nullptr);
            if (PushDelayQueueNode(pEventData)) {
                // The module lacks data. The store is asked to fetch them before the next attempt.
                m_modules.update_data_store();
                result.give_back();
                LOG_INFO("alert trace retry, guid:%s", guid);
                return TRC_RETRY;
            }
            outcome = log_failed(guid);
            break;
        case ZEL_TRC_COMPLETE:
            count_success(pEventData->uTryCount, cost);
            LOG_INFO("alert trace success, guid:%s", guid);
            outcome = TRC_SUCCESS;
            break;
        case ZEL_TRC_DROPPED:
            count(g_statistics.traceDroppedCount);
            LOG_INFO("alert trace dropped, guid:%s", guid);
            outcome = TRC_DROPPED;
            break;
        default: outcome = log_failed(guid); break;
    }
    // Before the costs are learned: a job that has ended must neither weigh nor be shed.
    m_eliminator.Pop(pEventData.get());
    if (outcome == TRC_SUCCESS) m_eliminator.UpdateCost(pEventData.get(), cost);
    FreeNodeData(*pEventData->pNode);
    return outcome;
}

void CReshdlWork::HandleEventResult(DelayNodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    count(g_statistics.sentToTrcCount);
    TraceResult result;
    const ETrcResult outcome = GetComResult(pEventData, result);
    if (outcome == TRC_RETRY) {
        LOG_DEBUG("GetComResult failed!");
        return;
    }
    if (result.data() == nullptr) return;
    const ST_QUEQE_NODE& node = *pEventData->pNode;
    // A result goes out whatever the module said of the trace. Only a host's callback is spared a failure.
    CaptureTraceData(result.data(), result.size(), node.uEventId);
    if (is_file_trace(node.uEventId)) {
        const auto& request = node.stFileTrace;
        if (outcome != TRC_FAILED) request.pfnResult(kFileTraceCode, request.uContext, result.data(), result.size());
        return;
    }
    const auto sent = InvokeEvent(event_id::finished_trace, node.uEventId, std::move(result), node.szGuid);
    if (sent.event == nullptr) LOG_ERROR("event invoke failed! guid:%s", node.szGuid);
    pEventData.reset();  // before the event, whose release may run code of the bus
}

void CReshdlWork::HandleKovEventEx(DelayNodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    TraceResult result;
    const ETrcResult outcome = GetKovAlarm(pEventData, result);
    if (outcome == TRC_RETRY) {
        LOG_DEBUG("GetKovAlarm failed!");
        // Set only when the module lacks the function: such a node is neither queued nor freed.
        zel::leave_allocated(pEventData.release());
        return;
    }
    const ST_QUEQE_NODE& node = *pEventData->pNode;
    CaptureData(result.data(), result.size(), CaptureKind::kov_alarm);
    auto sent = InvokeEvent(event_id::first_report, node.uEventId, std::move(result), node.szGuid);
    if (sent.event == nullptr) {
        LOG_ERROR("event invoke failed!");
        sent.refused.give_back();
        return;
    }
    if (outcome != TRC_SUCCESS) {
        LOG_DEBUG("Failed to complete the alarm information.");
        // An alert that was not completed keeps its event and its nodes.
        leave_event(sent.event.release());
        zel::leave_allocated(pEventData.release());
        return;
    }
    const auto& message = sent.event->payload();
    start_second_pass(std::move(pEventData), message.data(), message.size());
}

// The completed alert becomes a trace job of its own, in the same nodes. All that the first pass left in them is set
// back.
void CReshdlWork::start_second_pass(DelayNodePtr pEventData, const char* message, uint64_t size) {
    ST_QUEQE_NODE& node = *pEventData->pNode;
    node.pData = zel::copy_bytes(message, size);
    if (node.pData == nullptr) {
        LOG_ERROR("(char *)calloc(uSize, sizeof(char)) failed!");
        return;
    }
    node.uEventId = event_id::kov;
    node.uSize = size;
    pEventData->uType = event_id::finished_trace;
    pEventData->uTryCount = 0;
    pEventData->tPushTime = time(nullptr);
    pEventData->bDropped = false;
    pEventData->nProcessCount = 0;
    pEventData->nRiskLevel = 0;
    PushDelayQueueNode(pEventData);
}
