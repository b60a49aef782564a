// From a bus event to a node in the event queue, and from the queue to the handler.
#include <cstring>
#include <new>
#include <shared_mutex>

#include "common/checks.h"
#include "common/common.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/statistics.h"
#include "common/zel_bpsdk_api.h"
#include "pipeline/reshdlwork.h"
#include "platform/native_payloads.h"
#include "suppress/fifoqueue.h"

namespace {

NodePtr new_node(EVENT_ID uEventId) {
    NodePtr node(new (std::nothrow) ST_QUEQE_NODE);
    if (node == nullptr)
        LOG_ERROR("new(std::nothrow)ST_QUEQE_NODE failed!");
    else
        node->uEventId = uEventId;
    return node;
}

bool create_guid(char (&guid)[kGuidSize]) {
    if (CltCommon::CreateGuid(guid, sizeof guid)) return true;
    LOG_ERROR("Create guid error!");
    return false;
}

// One spare byte behind the copy keeps a text terminated. What cannot be had, a size that means nothing included, is
// false.
bool copy_payload(ST_QUEQE_NODE& node, const char* data, uint64_t size) {
    node.uSize = size;
    const bool impossible = size == UINT64_MAX || (data == nullptr && size > 0);
    zel::MallocBuffer copy = impossible ? nullptr : zel::calloc_buffer(size + 1);
    if (copy == nullptr) {
        LOG_ERROR("(char*)calloc(uSize, sizeof(char)) failed!");
        return false;
    }
    if (size > 0) memcpy(copy.get(), data, size);
    node.pData = copy.release();
    return true;
}

}  // namespace

struct CReshdlWork::EventRow {
    EVENT_ID first;  // of a range of ids
    EVENT_ID last;
    NodePtr (*build)(void* pEventData, EVENT_ID uEventId);
    const char* name;                                 // in the log line; null: the id
    void (CReshdlWork::*handle)(NodePtr pEventData);  // null: ignored
};

constexpr CReshdlWork::EventRow CReshdlWork::kEventRows[] = {
    {event_id::ioc, event_id::ioc, &IocEventHandle, "ioc", &CReshdlWork::HandleIocEvent},
    {event_id::ioa_alert, event_id::ioa_alert, &JsonEventHandle, nullptr, &CReshdlWork::HandleJsonEvent},
    {event_id::unassigned_1537, event_id::unassigned_1537, &ComBufEventHandle, nullptr, nullptr},
    {event_id::memory_trojan, event_id::memory_trojan, &ComBufEventHandle, nullptr, &CReshdlWork::HandleJsonEvent},
    {event_id::unassigned_1539, event_id::unassigned_1539, &ComBufEventHandle, nullptr, nullptr},
    {event_id::port_scan, event_id::abnormal_login, &ComBufEventHandle, nullptr, &CReshdlWork::HandleBFEvent},
    {event_id::credible_event, event_id::event_detect, &ComBufEventHandle, nullptr, &CReshdlWork::HandleDetanalEvent},
    {event_id::kov, event_id::kov, &ComBufEventHandle, "kov", &CReshdlWork::HandleKovEvent},
    {event_id::trc_ex, event_id::trc_ex, &ComBufEventHandle, "trc_ex", &CReshdlWork::HandleTrcExEvent},
    {event_id::ignored, event_id::ignored, &ComBufEventHandle, nullptr, nullptr},
};

void CReshdlWork::PushQueue(void* pEventData, EVENT_ID_T uEventId) {
    ZEL_ASSERT(pEventData);
    const std::shared_lock gate(m_queueGate);
    size_t trc_size = 0;
    size_t delay_size = 0;
    size_t event_size = 0;
    {
        const zel::Lock lock(m_hTrcMutex);
        trc_size = m_listTrc.size();
    }
    {
        const zel::Lock lock(m_hDelayMutex);
        delay_size = m_listDelay.size();
    }
    const uint64_t limit = m_uQueueMax.load(std::memory_order_relaxed);
    {
        const zel::Lock lock(m_hEventMutex);
        event_size = m_listEvent.size();
        if (static_cast<double>(delay_size) > static_cast<double>(limit) * 0.5)
            ZelBpSdkApi::Instance().report_busy(event_size, trc_size, delay_size);
        // Inclusive, so that a queue may reach the limit plus one.
        if (limit >= event_size && limit >= delay_size && limit >= trc_size) {
            NodePtr node = m_hEventMutex.valid() ? GetEventHandle(pEventData, uEventId) : nullptr;
            if (node == nullptr) {
                LOG_ERROR("Get event struct error!");
                // The record of a DNS hit has no owner then.
                if (uEventId == event_id::ioc) zel::leave_allocated(pEventData);
                return;
            }
            count(g_statistics.eventQueueTotalCount);
            m_listEvent.push_back(std::move(node));
            LOG_DEBUG("[work queue count : %zu]", m_listEvent.size());
            return;
        }
        count(g_statistics.eventQueueOverflowCount);
    }
    if (uEventId == event_id::ioc) delete static_cast<ST_IOC_MSG*>(pEventData);
    LOG_INFO("The queue reached the threshold. Event queue:%zu, trc queue:%zu, delay queue:%zu", event_size, trc_size,
             delay_size);
}

NodePtr CReshdlWork::GetEventHandle(void* pEventData, EVENT_ID_T uEventId) {
    ZEL_ASSERT(pEventData);
    if (m_bStop.load(std::memory_order_relaxed)) return nullptr;
    for (const EventRow& row : kEventRows)
        if (uEventId >= row.first && uEventId <= row.last) return row.build(pEventData, uEventId);
    LOG_ERROR("unknown event id : %u", uEventId);
    return nullptr;
}

// The GUID of such an event is the document's, so none is made here.
NodePtr CReshdlWork::JsonEventHandle(void* pEventData, EVENT_ID uEventId) {
    const auto& native = *static_cast<const ST_JSON_BUFFER*>(pEventData);
    NodePtr node = new_node(uEventId);
    if (node == nullptr || !copy_payload(*node, native.pData, native.uSize)) return nullptr;
    return node;
}

NodePtr CReshdlWork::ComBufEventHandle(void* pEventData, EVENT_ID uEventId) {
    ST_COMMON_BUFFER native;
    memcpy(&native, pEventData, sizeof native);
    char guid[kGuidSize] = {};
    if (!create_guid(guid)) return nullptr;
    NodePtr node = new_node(uEventId);
    if (node == nullptr || !copy_payload(*node, native.pData, native.uSize)) return nullptr;
    set_guid(*node, guid);
    return node;
}

NodePtr CReshdlWork::IocEventHandle(void* pEventData, EVENT_ID uEventId) {
    char guid[kGuidSize] = {};
    if (!create_guid(guid)) return nullptr;
    NodePtr node = new_node(uEventId);
    if (node == nullptr) return nullptr;
    node->pIocMsg = static_cast<ST_IOC_MSG*>(pEventData);
    const IocVariant2 process = node->pIocMsg->process();
    const uint64_t key =
        ResHdlCache::CFifoQueue::CalculateHash(process.szDomain, process.llCreateTime, process.szPath, process.uPid);
    LOG_INFO("receive one ioc alert, qury_name:%s, guid:%s", process.szDomain, guid);
    LOG_DEBUG("[%llu]pid:%d, path:%s, ptime:%llu, name:%s", static_cast<unsigned long long>(key),
              static_cast<int>(process.uPid), process.szPath, static_cast<unsigned long long>(process.llCreateTime),
              process.szDomain);
    node->ullCacheKey = key;
    set_guid(*node, guid);
    return node;
}

void CReshdlWork::HandleEvent(NodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    const EVENT_ID id = pEventData->uEventId;
    for (const EventRow& row : kEventRows) {
        if (id < row.first || id > row.last || row.handle == nullptr) continue;
        LOG_DEBUG("start handle %s!", row.name != nullptr ? row.name : std::to_string(id).c_str());
        (this->*row.handle)(std::move(pEventData));
        return;
    }
    LOG_DEBUG("ignore handle: %d!", static_cast<int>(id));
    zel::leave_allocated(pEventData.release());  // an ignored event keeps its node
}
