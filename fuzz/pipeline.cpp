#include "pipeline.h"

#include <array>
#include <memory>
#include <utility>

#include "common/guard.h"
#include "common/module_state.h"
#include "failing_memory.h"
#include "fuzz.h"
#include "host/lib/clocks.h"

namespace {

namespace clocks = zelhost::clocks;

constexpr uint32_t kQueueMax = 100;

std::chrono::milliseconds g_now = std::chrono::hours(24);

// Keeps what the plug-in sends. The target's own memory never fails.
class Outside final : public MbFrame::IDispatch {
public:
    int32_t Invoke(MbFrame::IEvent* event) override {
        const fuzz::MemoryHolds holds;
        if (event->GetEventId() == event_id::mem_detect)
            sent.push_back(memory_check(*static_cast<const ST_MEM_DETECT_INFO*>(event->GetNativeEvent())));
        else
            sent.push_back(message(event->GetEventId(), event->GetNativeEvent()));
        return 0;
    }

    std::vector<fuzz::Sent> sent;

private:
    static fuzz::Sent message(EVENT_ID id, const void* record) {
        // The record is packed, so it is copied before its members are used.
        ST_PB_EVENT native;
        memcpy(&native, record, sizeof native);
        FUZZ_CHECK(native.uEventId == id && native.pData != nullptr);
        return {id, native.uSourceEventId, native.pszGuid != nullptr ? native.pszGuid : "",
                std::string(native.pData, native.uSize)};
    }
    static fuzz::Sent memory_check(const ST_MEM_DETECT_INFO& info) {
        FUZZ_CHECK(info.pszPath != nullptr);
        std::string text = std::to_string(info.uPid) + '|' + std::to_string(info.llCreateTime) + '|' +
                           std::to_string(info.llOpTime) + '|' + std::to_string(info.nConfidence) + '|' +
                           std::to_string(info.uContainerInitPid) + '|' + std::to_string(info.uPrivileged);
        const std::array<const char*, 12> texts{info.pszPath,          info.pszRepository, info.pszMounts,
                                                info.pszUser,          info.pszNamespace,  info.pszImageId,
                                                info.pszContainerId,   info.pszImageTag,   info.pszImageName,
                                                info.pszContainerName, info.pszCapability, info.pszPortsBinding};
        for (const char* each : texts) text.append("|").append(each != nullptr ? each : "");
        return {event_id::mem_detect, 0, {}, std::move(text)};
    }
};
Outside& g_outside = *new Outside;

// The trace module's part: the result is the input.
int32_t echo(const char* input, uint32_t size, char** result, uint32_t* result_size) {
    const fuzz::MemoryHolds holds;
    *result = static_cast<char*>(malloc(size + 1));
    if (size > 0) memcpy(*result, input, size);
    *result_size = size;
    return ZEL_TRC_COMPLETE;
}

[[maybe_unused]] const bool g_attached = [] {
    setenv("agentid", "fuzz", 1);
    clocks::stand_still(clocks::monotonic, g_now);
    g_pDispatcher.store(&g_outside);
    const auto module = std::make_shared<TrcFunctionTable>();
    module->trace_event_process_completion = module->trace_event_expand_from_mgr = echo;
    module->trace_event_release = [](char* buffer) { return free(buffer), 0; };
    g_trcModule.exchange(module);
    return true;
}();

}  // namespace

namespace fuzz {

Native::Native(EVENT_ID id, const char* data, uint64_t size)
    : common_{id, size, const_cast<char*>(data)} {  // C structures; nobody writes there
    if (id == event_id::ioa_alert) document_ = {common_.pData, size};
}

Outcome run_event(EVENT_ID id, Incoming incoming) {
    Outcome outcome;
    CReshdlWork work;
    work.SetQueueMax(kQueueMax);
    const EventRow& row = *find_event_row(id);
    outcome.given_up = !zel::guarded("event", [&] {
        NodePtr node = row.build(incoming, id);
        outcome.taken = node != nullptr;
        if (node != nullptr && row.handle != nullptr) (work.*row.handle)(std::move(node));
    });
    outcome.sent = take_sent();
    return outcome;
}

std::vector<Sent> take_sent() { return std::exchange(g_outside.sent, {}); }

void advance(std::chrono::milliseconds by) { clocks::stand_still(clocks::monotonic, g_now += by); }

}  // namespace fuzz
