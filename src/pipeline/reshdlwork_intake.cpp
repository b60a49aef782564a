// From a bus event to a node in the event queue, on the bus thread, and from the queue to the handler, on the alarm
// worker.
#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "common/checks.h"
#include "common/common.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/statistics.h"
#include "common/zel_bpsdk_api.h"
#include "pipeline/reshdlwork.h"
#include "platform/native_payloads.h"

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

// One spare byte behind the copy keeps a text terminated. Sizes and pointers come from outside. A size that leaves no
// room for the spare byte, or a size without data, is refused like a lack of memory.
bool copy_payload(ST_QUEQE_NODE& node, const char* data, uint64_t size) {
    node.uSize = size;
    const bool impossible = size == UINT64_MAX || (data == nullptr && size > 0);
    if (!impossible) node.pData = zel::malloc_buffer(size + 1);
    if (node.pData == nullptr) {
        LOG_ERROR("(char*)calloc(uSize, sizeof(char)) failed!");
        return false;
    }
    if (size > 0) memcpy(node.pData.get(), data, size);
    node.pData.get()[size] = '\0';
    return true;
}

// The GUID of such an event is that of its document, so none is made here.
NodePtr JsonEventHandle(Incoming& incoming, EVENT_ID uEventId) {
    const auto& native = *static_cast<const ST_JSON_BUFFER*>(incoming.native);
    NodePtr node = new_node(uEventId);
    if (node == nullptr || !copy_payload(*node, native.pData, native.uSize)) return nullptr;
    return node;
}

NodePtr ComBufEventHandle(Incoming& incoming, EVENT_ID uEventId) {
    // The record is packed, so it is copied before its members are used.
    ST_COMMON_BUFFER native;
    memcpy(&native, incoming.native, sizeof native);
    char guid[kGuidSize] = {};
    if (!create_guid(guid)) return nullptr;
    NodePtr node = new_node(uEventId);
    if (node == nullptr || !copy_payload(*node, native.pData, native.uSize)) return nullptr;
    set_guid(*node, guid);
    return node;
}

NodePtr IocEventHandle(Incoming& incoming, EVENT_ID uEventId) {
    char guid[kGuidSize] = {};
    if (!create_guid(guid)) return nullptr;
    NodePtr node = new_node(uEventId);
    if (node == nullptr) return nullptr;
    // From here on nothing fails, so the record is never lost between two owners.
    node->pIocMsg = std::move(incoming.dns);
    node->ullCacheKey = node->pIocMsg->ullCacheKey;
    const IocVariant2& process = node->pIocMsg->process();
    LOG_INFO("receive one ioc alert, qury_name:%s, guid:%s", process.szDomain, guid);
    LOG_DEBUG("[%llu]pid:%d, path:%s, ptime:%llu, name:%s", static_cast<unsigned long long>(node->ullCacheKey),
              static_cast<int>(process.uPid), process.szPath, static_cast<unsigned long long>(process.llCreateTime),
              process.szDomain);
    set_guid(*node, guid);
    return node;
}

}  // namespace

// An id stands once. 534 has no function: it is subscribed, and each one is refused with two ERROR lines. 1537 and 1539
// are not subscribed; the bus does not deliver them, but if one came it would be taken and ignored.
std::span<const EventRow> event_rows() {
    using Work = CReshdlWork;
    constexpr bool yes = true;
    constexpr bool no = false;
    static constexpr EventRow kRows[] = {
        // id, subscribed, in pure mode, carries a buffer
        {event_id::unprocessed, yes, no, yes, nullptr, nullptr, nullptr},
        {event_id::ioc, yes, no, no, IocEventHandle, &Work::HandleIocEvent, "ioc"},
        {event_id::ioa_alert, yes, no, yes, JsonEventHandle, &Work::HandleJsonEvent, nullptr},
        {event_id::unassigned_1537, no, no, yes, ComBufEventHandle, nullptr, nullptr},
        {event_id::memory_trojan, yes, no, yes, ComBufEventHandle, &Work::HandleJsonEvent, nullptr},
        {event_id::unassigned_1539, no, no, yes, ComBufEventHandle, nullptr, nullptr},
        {event_id::port_scan, yes, no, yes, ComBufEventHandle, &Work::HandleBFEvent, nullptr},
        {event_id::brute_force, yes, yes, yes, ComBufEventHandle, &Work::HandleBFEvent, nullptr},
        {event_id::abnormal_login, yes, yes, yes, ComBufEventHandle, &Work::HandleBFEvent, nullptr},
        {event_id::credible_event, yes, no, yes, ComBufEventHandle, &Work::HandleDetanalEvent, nullptr},
        {event_id::event_detect, yes, no, yes, ComBufEventHandle, &Work::HandleDetanalEvent, nullptr},
        {event_id::kov, yes, no, yes, ComBufEventHandle, &Work::HandleKovEvent, "kov"},
        {event_id::trc_ex, yes, no, yes, ComBufEventHandle, &Work::HandleTrcExEvent, "trc_ex"},
        {event_id::ignored, yes, no, yes, ComBufEventHandle, nullptr, nullptr},
    };
    return kRows;
}

const EventRow* find_event_row(EVENT_ID id) {
    const auto rows = event_rows();
    const auto found = std::ranges::find(rows, id, &EventRow::id);
    return found == rows.end() ? nullptr : &*found;
}

void CReshdlWork::PushQueue(const void* pEventData, EVENT_ID_T uEventId) {
    ZEL_ASSERT(pEventData);
    Incoming incoming{pEventData, nullptr};
    push(incoming, uEventId);
}

void CReshdlWork::PushQueue(std::unique_ptr<ST_IOC_MSG> pEventData) {
    ZEL_ASSERT(pEventData);
    Incoming incoming{nullptr, std::move(pEventData)};
    push(incoming, event_id::ioc);
}

void CReshdlWork::push(Incoming& incoming, EVENT_ID_T uEventId) {
    const size_t trc_size = m_trcQueue.size();
    const size_t delay_size = m_delayQueue.size();
    const uint64_t limit = value_of(m_settings.uQueueMax);
    // The other two sizes are read before the event queue is held, since no thread may hold two queues. They may be out
    // of date by a few.
    size_t event_size = 0;
    {
        const WorkQueue<ST_QUEQE_NODE>::Hold hold(m_eventQueue);
        event_size = m_eventQueue.size_held();
        // More than half; exactly half is not reported. The SDK is called under the queue's mutex, which holds up the
        // alarm worker for that long.
        if (static_cast<double>(delay_size) > static_cast<double>(limit) * 0.5)
            ZelBpSdkApi::Instance().report_busy(event_size, trc_size, delay_size);
        // The limits count inclusive, so a queue may hold one more than the limit.
        if (limit >= event_size && limit >= delay_size && limit >= trc_size) {
            auto cell = WorkQueue<ST_QUEQE_NODE>::make_cell();
            if (!cell.empty()) cell.front() = GetEventHandle(incoming, uEventId);
            if (cell.empty() || cell.front() == nullptr || !m_eventQueue.push_held(cell)) {
                LOG_ERROR("Get event struct error!");
                // The record of a DNS hit has no owner then.
                zel::leave_allocated(incoming.dns.release());
                return;
            }
            // After the append, so that the count never includes an event that was not queued.
            count(g_statistics.eventQueueTotalCount);
            LOG_DEBUG("[work queue count : %zu]", m_eventQueue.size_held());
            return;
        }
        count(g_statistics.eventQueueOverflowCount);
    }
    // The record is freed before the line is written.
    incoming.dns.reset();
    LOG_INFO("The queue reached the threshold. Event queue:%zu, trc queue:%zu, delay queue:%zu", event_size, trc_size,
             delay_size);
}

NodePtr CReshdlWork::GetEventHandle(Incoming& incoming, EVENT_ID_T uEventId) {
    // No line of its own: the caller writes "Get event struct error!".
    if (m_bStop.load(std::memory_order_relaxed)) return nullptr;
    const EventRow* const row = find_event_row(uEventId);
    if (row == nullptr || row->build == nullptr) {
        LOG_ERROR("unknown event id : %u", uEventId);
        return nullptr;
    }
    return row->build(incoming, uEventId);
}

void CReshdlWork::HandleEvent(NodePtr pEventData) {
    ZEL_ASSERT(pEventData);
    const EVENT_ID id = pEventData->uEventId;
    const EventRow* const row = find_event_row(id);
    if (row == nullptr || row->handle == nullptr) {
        LOG_DEBUG("ignore handle: %d!", static_cast<int>(id));
        zel::leave_allocated(pEventData.release());  // an ignored event keeps its node
        return;
    }
    if (row->name != nullptr)
        LOG_DEBUG("start handle %s!", row->name);
    else
        LOG_DEBUG("start handle %d!", static_cast<int>(id));
    (this->*row->handle)(std::move(pEventData));
}
