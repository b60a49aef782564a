#include "pipeline/handler_support.h"

#include <cstring>
#include <ctime>
#include <new>

#include "common/log.h"

bool is_built(const zel::MallocBuffer& buffer, uint64_t size) {
    if (buffer != nullptr && size > 0) return true;
    LOG_ERROR("Get com protobuf failed!");
    return false;
}

ReshdlEventTrace::EventRef publish_built(EVENT_ID type, const ST_QUEQE_NODE& node, zel::MallocBuffer& buffer,
                                         uint64_t size) {
    auto event = InvokeEvent(type, node.uEventId, buffer.get(), size, ReshdlEventTrace::EDataType::plugin, node.szGuid);
    if (event != nullptr) static_cast<void>(buffer.release());
    return event;
}

zel::MallocBuffer copy_message(const char* data, uint64_t size) {
    zel::MallocBuffer copy = zel::calloc_buffer(size);
    if (copy != nullptr && size > 0) memcpy(copy.get(), data, size);
    return copy;
}

DelayNodePtr new_trace_job(NodePtr node) {
    DelayNodePtr job(new (std::nothrow) ST_DELAY_QUEQE_NODE);
    if (job == nullptr) return nullptr;
    job->uType = event_id::finished_trace;
    job->tPushTime = time(nullptr);
    job->pNode = std::move(node);
    return job;
}
