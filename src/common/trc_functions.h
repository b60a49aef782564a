// The trace module as it is bound at the moment, and a result that it made.
//
// The module can be unloaded while a call into it runs, so nobody keeps a bare pointer: who calls takes a share of the
// table, and the library is closed with the last share.
#pragma once

#include <cstdint>
#include <utility>

#include "common/module_path.h"
#include "common/snapshot.h"
#include "platform/zel_trc.h"

struct TrcFunctionTable {
    zel::Dll hModule;
    trace_event_init_t trace_event_init = nullptr;
    trace_event_uninit_t trace_event_uninit = nullptr;
    trace_event_release_t trace_event_release = nullptr;
    trace_event_work_t trace_event_process_completion = nullptr;
    trace_event_work_t trace_event_create_by_alert = nullptr;
    trace_event_work_t trace_event_expand_from_mgr = nullptr;
    trace_event_work_t trace_event_coordinate_dispose_trc = nullptr;
};

// Never ends: events that carry a result are released on threads of the bus for as long as the process runs.
extern zel::Snapshot<TrcFunctionTable>& g_trcModule;

// A result buffer, owned from the call that made it until the event that carries it is gone. Any thread.
class TraceResult {
public:
    TraceResult() = default;
    // Gives a buffer back to the module that is bound then.
    ~TraceResult() {
        if (data_ != nullptr) give_back();
    }
    TraceResult(TraceResult&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
    TraceResult& operator=(TraceResult&&) = delete;

    // Calls a function of the module, which may leave a result whatever its code is. Returns the code.
    int32_t take(trace_event_work_t work, const char* input, uint64_t input_size) {
        return work(input, static_cast<uint32_t>(input_size), &data_, &size_);
    }

    char* data() const { return data_; }
    // 0 without a buffer, whatever size the module gave.
    uint32_t size() const { return data_ != nullptr ? size_ : 0; }

    // Gives the buffer back to the module, which is told of a null one as well. Without the module it stays allocated.
    void give_back();
    // The same for who still has a share of the module.
    void give_back(const TrcFunctionTable& module) { module.trace_event_release(std::exchange(data_, nullptr)); }

private:
    char* data_ = nullptr;
    uint32_t size_ = 0;
};
