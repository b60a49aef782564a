// Traces that the host asks for. All of it runs on the caller's thread; the callback of a file trace comes later, on
// the trace worker.
#include <new>

#include "common/checks.h"
#include "common/common.h"
#include "common/log.h"
#include "common/memory.h"
#include "pipeline/reshdlwork.h"
#include "trace/getprotobuf.h"

namespace {

// What the host's callback gets as its code.
constexpr int kProcessTraceCode = 10;

}  // namespace

int CReshdlWork::FileTrace(fn_server_ret_t fun, const char* path, const char* file_key, EVENT_ID uEventId,
                           uint32_t uContext) {
    ZEL_ASSERT(fun && path && file_key);
    char guid[kGuidSize] = {};
    if (!CltCommon::CreateGuid(guid, sizeof guid)) {
        LOG_ERROR("Create guid error!");
        return -1;
    }
    NodePtr node(new (std::nothrow) ST_QUEQE_NODE);
    if (node == nullptr) {
        LOG_ERROR("malloc node filed!");
        return -1;
    }
    node->uEventId = uEventId;
    node->stFileTrace.strPath = path;
    node->stFileTrace.strFileKey = file_key;
    node->stFileTrace.uContext = uContext;
    node->stFileTrace.pfnResult = fun;
    set_guid(*node, guid);
    zel::MallocBuffer message;
    // A message that could not be built has size 0 and is traced all the same; the module then answers.
    node->uSize = CGetProtobuf::GetFileTraceProtobuf(*node, message);
    node->pData = zel::copy_bytes(message.get(), node->uSize);
    zel::leave_allocated(message.release());  // the builder's buffer of a file trace has no further owner
    if (node->pData == nullptr) {
        LOG_ERROR("malloc data failed!");
        return -1;
    }
    // The answer stays 0 even if the job is not queued, as during a stop or with tracing turned off. The host then
    // waits for a callback that never comes.
    PushIocTrace(std::move(node));
    return 0;
}

int CReshdlWork::ProcTrace(fn_server_ret_t fun, const char* data, uint32_t size, uint32_t uContext) {
    ZEL_ASSERT(fun && data);
    const auto module = g_trcModule.get();
    if (module == nullptr || module->trace_event_coordinate_dispose_trc == nullptr) {
        LOG_ERROR("zeltrc proc_trc comp function is null.");
        return -1;
    }
    TraceResult result;
    result.take(module->trace_event_coordinate_dispose_trc, data, size);
    // The code of the module is not looked at: the host sees from the buffer whether there is a result.
    fun(kProcessTraceCode, uContext, result.data(), result.size());
    result.give_back(*module);
    return 0;
}
