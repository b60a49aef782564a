// The trace module: its seven functions, how it counts calls, and how it gives the answers that the settings ask for.
#include "platform/zel_trc.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <string>
#include <thread>

#include "retrace.pb.h"
#include "standin/export.h"
#include "standin/zelcount/ledger.h"
#include "standin/zeltrc/chain.h"
#include "standin/zeltrc/log.h"
#include "standin/zeltrc/settings.h"
#include "standin/zeltrc/zeltrc_host.h"

namespace {

using vorn_retrace::vorn_trace_info;

// Codes of the agent. The plug-in knows only complete, dropped and not ready; any other code is a failure to it.
constexpr int32_t kFailed = -0x7fffbffb;           // 0x80004005
constexpr int32_t kInvalidArgument = -0x7ff8ffa9;  // 0x80070057

// Lives as long as one load of the library. Its end looks for results that never came back.
struct Load {
    Load() { zelcount::trc_loaded(); }
    ~Load() {
        const zelcount::Leftover leftover = zelcount::trc_unloaded();
        for (const zelcount::TraceBuffer& left : leftover.unexplained)
            ZELTRC_LOG(ZEL_LOG_ERROR, "ERROR", "result outstanding at unload, buffer:%p, size:%u, load:%lu, guid:%s",
                       static_cast<const void*>(left.buffer), left.size, static_cast<unsigned long>(left.load),
                       left.guid.c_str());
        if (leftover.explained != 0)
            ZELTRC_LOG(ZEL_LOG_INFO, "INFO", "results that are still held at unload:%lu",
                       static_cast<unsigned long>(leftover.explained));
    }
} load;

// A start may come while a trace of an earlier one still runs, so each call takes a copy of the settings.
std::mutex settings_mutex;
Settings settings;
std::atomic<uint64_t> traces;  // since the module's start

Settings current_settings() {
    const std::lock_guard lock(settings_mutex);
    return settings;
}

// A call that works on a message. The constructor counts its begin, the destructor its end with its code.
struct Call {
    explicit Call(uint32_t number) : function(number) { zelcount::trc_called(function); }
    ~Call() { zelcount::trc_answered(code); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    const uint32_t function;
    int32_t code = kFailed;
};

// The agent gives its id in the environment.
std::string agent_id() {
    const char* id = getenv("agentid");
    return id != nullptr ? id : "0";
}

// The answer to one trace of an alert. Only calls that get past "not ready" have a number. A failure wins over a drop.
int32_t trace_code(const Call& call, const std::string& guid, const Settings& now) {
    if (zelcount::trc_not_ready(guid, now.not_ready_times)) return ZEL_TRC_NOT_READY;
    const uint64_t number = ++traces;
    int32_t code = ZEL_TRC_COMPLETE;
    if (now.drop_every != 0 && number % now.drop_every == 0) code = ZEL_TRC_DROPPED;
    if (now.fail_every != 0 && number % now.fail_every == 0) code = kFailed;
    zelcount::trc_settled(guid, call.function == ZELTRC_COMPLETION && code == ZEL_TRC_COMPLETE);
    return code;
}

// The first step of a KOV alert: the module fills in what the engine does not know.
void complete_alert(vorn_trace_info& message) {
    if (message.agent_id().empty()) message.set_agent_id(agent_id());
}

// Replaces a request by its answer, a message of its own that names the request's task.
void answer_request(vorn_trace_info& message, vorn_retrace::TRACE_CMD cmd) {
    vorn_trace_info answer;
    answer.set_agent_id(agent_id());
    answer.set_task_id(message.task_id());
    answer.set_cmd(cmd);
    if (message.has_append_cfg()) *answer.mutable_append_cfg() = message.append_cfg();
    message.Swap(&answer);
}

// Each function makes its result from its input alone.
void make_result(uint32_t function, vorn_trace_info& message) {
    switch (function) {
        case ZELTRC_COMPLETION: return complete_alert(message);
        case ZELTRC_CREATE: return build_chain(message);
        case ZELTRC_EXPAND: return answer_request(message, vorn_retrace::TRACE_CMD_APPEND_CHAIN);
        default: return answer_request(message, vorn_retrace::TRACE_CMD_PROCESS_QUERY);
    }
}

// Gives the message to the caller in a buffer that trace_event_release frees. False when there is no memory.
bool hand_out(const vorn_trace_info& message, const std::string& guid, char** result, uint32_t* result_size) {
    const size_t size = message.ByteSizeLong();
    if (size > std::numeric_limits<int>::max()) return false;
    // From malloc and of exactly the size, so that a checker sees each byte too many.
    char* buffer = static_cast<char*>(malloc(size != 0 ? size : 1));
    if (buffer == nullptr) return false;
    message.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(buffer));
    zelcount::trc_handed_out(buffer, static_cast<uint32_t>(size), guid);
    *result = buffer;
    *result_size = static_cast<uint32_t>(size);
    return true;
}

// Everything of a call but its counting. The outputs are set on every way out, as the caller may read them after a
// failure.
int32_t work(const Call& call, const char* input, uint32_t input_size, char** result, uint32_t* result_size) {
    if (result == nullptr || result_size == nullptr) return kInvalidArgument;
    *result = nullptr;
    *result_size = 0;
    // A request for a process query is no message, so any text will do.
    vorn_trace_info message;
    if (input == nullptr || input_size == 0 || input_size > std::numeric_limits<int>::max()) return kInvalidArgument;
    if (call.function != ZELTRC_DISPOSE && !message.ParseFromArray(input, static_cast<int>(input_size)))
        return kInvalidArgument;

    const Settings now = current_settings();
    // A trace that fails or is not ready costs its time as well.
    std::this_thread::sleep_for(std::chrono::milliseconds(now.cost_ms));

    const std::string guid = message.threat().alert_guid();
    const bool is_trace = call.function == ZELTRC_COMPLETION || call.function == ZELTRC_CREATE;
    const int32_t code = is_trace ? trace_code(call, guid, now) : ZEL_TRC_COMPLETE;
    if (code != ZEL_TRC_COMPLETE && now.partial_result == 0) return code;
    make_result(call.function, message);
    return hand_out(message, guid, result, result_size) ? code : kFailed;
}

// The border of the library: no exception leaves it.
int32_t run(uint32_t function, const char* input, uint32_t input_size, char** result, uint32_t* result_size) {
    Call call(function);
    try {
        call.code = work(call, input, input_size, result, result_size);
    } catch (const std::exception& error) {
        ZELTRC_LOG(ZEL_LOG_ERROR, "ERROR", "call failed:%s", error.what());
    }
    return call.code;
}

}  // namespace

extern "C" {

// The settings are read before the lock is taken, because reading them may take long.
STANDIN_EXPORT int32_t trace_event_init(void) {
    zelcount::trc_called(ZELTRC_INIT);
    const Settings fresh = read_settings();
    if (fresh.init_fails != 0) return kFailed;
    const std::lock_guard lock(settings_mutex);
    settings = fresh;
    traces = 0;
    return ZEL_TRC_COMPLETE;
}

STANDIN_EXPORT int32_t trace_event_uninit(void) {
    zelcount::trc_called(ZELTRC_UNINIT);
    return ZEL_TRC_COMPLETE;
}

STANDIN_EXPORT int32_t trace_event_release(char* buffer) {
    zelcount::trc_called(ZELTRC_RELEASE);
    // A buffer of an earlier load is freed as well: all loads share the allocator of the process.
    if (zelcount::trc_taken_back(buffer)) {
        free(buffer);
        return ZEL_TRC_COMPLETE;
    }
    if (buffer == nullptr) return ZEL_TRC_COMPLETE;
    ZELTRC_LOG(ZEL_LOG_ERROR, "ERROR", "released what is not outstanding, buffer:%p", static_cast<void*>(buffer));
    return kInvalidArgument;
}

STANDIN_EXPORT int32_t trace_event_process_completion(const char* input, uint32_t input_size, char** result,
                                                      uint32_t* result_size) {
    return run(ZELTRC_COMPLETION, input, input_size, result, result_size);
}

STANDIN_EXPORT int32_t trace_event_create_by_alert(const char* input, uint32_t input_size, char** result,
                                                   uint32_t* result_size) {
    return run(ZELTRC_CREATE, input, input_size, result, result_size);
}

STANDIN_EXPORT int32_t trace_event_expand_from_mgr(const char* input, uint32_t input_size, char** result,
                                                   uint32_t* result_size) {
    return run(ZELTRC_EXPAND, input, input_size, result, result_size);
}

STANDIN_EXPORT int32_t trace_event_coordinate_dispose_trc(const char* input, uint32_t input_size, char** result,
                                                          uint32_t* result_size) {
    return run(ZELTRC_DISPOSE, input, input_size, result, result_size);
}

}  // extern "C"
