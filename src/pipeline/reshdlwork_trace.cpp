// The trace stage: the road of a trace job from its first push to a finished trace, a callback or a discard.
#include <cstring>
#include <ctime>
#include <new>
#include <shared_mutex>

#include "common/capture.h"
#include "common/checks.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/reshdlevent.h"
#include "common/statistics.h"
#include "pipeline/handler_support.h"
#include "pipeline/reshdlwork.h"
#include "platform/native_payloads.h"

namespace {

constexpr int kFileTraceCode = 8;

bool is_file_trace(EVENT_ID id) { return id == event_id::file_trace_process || id == event_id::file_trace_file; }

// Runs a function of the module on the node's message and measures it in milliseconds of the tick clock.
int32_t measured_call(trace_event_work_t work, const ST_QUEQE_NODE& node, TraceResult& result, int& cost) {
    const uint64_t before = zel_time_get_tick_cout();
    const int32_t hr = result.take(work, node.pData, node.uSize);
    cost = static_cast<int>(zel_time_get_tick_cout() - before);
    return hr;
}

void count_success(uint32_t try_count, int cost) {
    const auto milliseconds = static_cast<uint64_t>(cost);
    count(g_liveTraceCost.traceCost, milliseconds);
    count(g_liveTraceCost.successCount);
    // A job from the trc queue has a count of 1 or more: only a KOV completion at its very first attempt has 0.
    if (try_count == 0) count(g_liveTraceCost.firstSuccessCount);
    if (milliseconds > g_liveTraceCost.maxCost.load(std::memory_order_relaxed))
        g_liveTraceCost.maxCost.store(milliseconds, std::memory_order_relaxed);
}

ETrcResult log_failed(const char* guid) {
    count(g_statistics.traceFailedCount);
    LOG_INFO("alert trace failed, guid:%s", guid);
    return TRC_FAILED;
}

// A leak checker does not find what stands in a packed record, so each is named.
void leave_event(ReshdlEventTrace::EventRef event) {
    ST_PB_EVENT native;
    memcpy(&native, event->GetNativeEvent(), sizeof native);
    zel::leave_allocated(native.pData);
    zel::leave_allocated(native.pszGuid);
    zel::leave_allocated(event.release());
}

}  // namespace

bool CReshdlWork::PushDelayQueueNode(DelayNodePtr& pEventData) {
    ZEL_ASSERT(pEventData);
    const std::shared_lock gate(m_queueGate);
    const uint64_t most_tries = m_uTrcTimes.load(std::memory_order_relaxed);
    if (most_tries == 0 || !m_hTrcMutex.valid()) return false;

    // The cell is made first: nothing can fail once the eliminator knows the node, and a node without a cell is not
    // queued.
    ST_DELAY_QUEQE_NODE* const node = pEventData.get();
    std::list<DelayNodePtr> cell;
    try {
        cell.push_back(nullptr);
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (node->uTryCount == 0) {
        count(g_statistics.firstTraceTotalCount);
        ++node->uTryCount;
        // Before the queue can give the node away: the trace worker may finish and free it at once.
        m_eliminator.Push(node);
        cell.front() = std::move(pEventData);
        const zel::Lock lock(m_hTrcMutex);
        m_listTrc.splice(m_listTrc.end(), cell);
        return true;
    }
    ++node->uTryCount;
    if (node->uTryCount > most_tries) {
        LOG_DEBUG("Try more than %d times, discard! guid:%s", static_cast<int>(most_tries), node->pNode->szGuid);
        return false;
    }
    count(g_statistics.delayedTraceTotalCount);
    cell.front() = std::move(pEventData);
    const zel::Lock lock(m_hDelayMutex);
    m_listDelay.splice(m_listDelay.end(), cell);
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
    // A queued node may be finished and freed by the other worker before the line about it is written.
    char guid[kGuidSize + 1];
    memcpy(guid, pEventData->pNode->szGuid, sizeof guid);
    ETrcResult outcome = TRC_FAILED;
    switch (hr) {
        case ZEL_TRC_NOT_READY:
            pEventData->tPushTime = time(nullptr);
            if (PushDelayQueueNode(pEventData)) {
                const auto ds = m_dsModule.get();
                if (ds != nullptr && ds->ds_update_db != nullptr) ds->ds_update_db();
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
    m_eliminator.Pop(pEventData.get());
    if (outcome == TRC_SUCCESS) m_eliminator.UpdateCost(pEventData.get(), cost);
    FreeNodeData(pEventData->pNode.get());
    pEventData->pNode->uSize = result.size();
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
    if (result.data() != nullptr) send_trace(*pEventData->pNode, outcome, result);
}

// What the module gave goes out whatever it said of the trace; a host's callback alone is spared a failure.
void CReshdlWork::send_trace(const ST_QUEQE_NODE& stNode, ETrcResult eResult, TraceResult& result) {
    CaptureTraceData(result.data(), result.size(), stNode.uEventId);
    if (is_file_trace(stNode.uEventId)) {
        if (eResult != TRC_FAILED)
            stNode.stFileTrace.pfnResult(kFileTraceCode, stNode.stFileTrace.uContext, result.data(), result.size());
        result.give_back();
        return;
    }
    const auto event = InvokeEvent(event_id::finished_trace, stNode.uEventId, result.data(), result.size(),
                                   ReshdlEventTrace::EDataType::trace_module, stNode.szGuid);
    if (event == nullptr) {
        LOG_ERROR("event invoke failed! guid:%s", stNode.szGuid);
        result.give_back();
        return;
    }
    result.hand_over();
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
    ST_QUEQE_NODE& node = *pEventData->pNode;
    CaptureData(result.data(), result.size(), CaptureKind::kov_alarm);
    auto event = InvokeEvent(event_id::first_report, node.uEventId, result.data(), result.size(),
                             ReshdlEventTrace::EDataType::trace_module, node.szGuid);
    if (event == nullptr) {
        LOG_ERROR("event invoke failed!");
        result.give_back();
        return;
    }
    const char* const message = result.data();
    result.hand_over();
    if (outcome != TRC_SUCCESS) {
        LOG_DEBUG("Failed to complete the alarm information.");
        // An alert that was not completed keeps its event and its nodes.
        leave_event(std::move(event));
        zel::leave_allocated(pEventData.release());
        return;
    }
    // The second pass: the completed alert becomes a trace job of its own.
    zel::MallocBuffer copy = copy_message(message, result.size());
    if (copy == nullptr) {
        LOG_ERROR("(char *)calloc(uSize, sizeof(char)) failed!");
        return;
    }
    node.uEventId = event_id::kov;
    node.pData = copy.release();
    node.uSize = result.size();
    pEventData->uType = event_id::finished_trace;
    pEventData->uTryCount = 0;
    pEventData->tPushTime = time(nullptr);
    pEventData->bDropped = false;
    pEventData->nProcessCount = 0;
    pEventData->nRiskLevel = 0;
    PushDelayQueueNode(pEventData);
}
