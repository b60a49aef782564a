// Results of the detection analysis. The payload is a finished message. It gets the id of this agent and a command, and
// all else in it goes out as it came.
#include "common/log.h"
#include "trace/getprotobuf.h"
#include "trace/getprotobuf_steps.h"

using namespace vorn_retrace;

namespace {

// The library takes a signed size and throws on a negative one; such a payload counts as unreadable.
bool parse(vorn_trace_info& info, const char* data, uint64_t size) {
    const auto narrow_size = static_cast<int32_t>(size);
    if (narrow_size < 0) return false;
    if (data == nullptr) return narrow_size == 0;
    return info.ParseFromArray(data, narrow_size);
}

}  // namespace

uint64_t CGetProtobuf::GetDetanalProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer) {
    const zel::TraceInfo info;
    // A payload that is no message costs a line. What was read before the fault is worth sending.
    if (!parse(*info, stNode.pData.get(), stNode.uSize)) LOG_ERROR("param is error!");
    if (!zel::passed(SetDetanalCmd(stNode.uEventId, info.get()), "GetMainBuf failed!")) return 0;
    return SerializeTraceInfo(*info, buffer);
}

bool CGetProtobuf::SetDetanalCmd(uint32_t uEventId, vorn_trace_info* pInfo) {
    switch (uEventId) {
        case event_id::credible_event: return GetMainBuf(pInfo, TRACE_CMD_CREDIBLE_EVENT);
        case event_id::event_detect: return GetMainBuf(pInfo, TRACE_CMD_EVENT_DETECT);
        default: LOG_ERROR("Unknown event!"); return false;
    }
}
