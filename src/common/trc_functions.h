// The trace module that is bound at the moment, and the owner of a result that it made.
//
// The module can be unloaded while a call into it runs, so nobody keeps a bare pointer to it. A caller takes a share of
// the function table, and the library is closed with the last share.
#pragma once

#include <cstdint>
#include <utility>

#include "common/module_path.h"
#include "common/snapshot.h"
#include "platform/zel_trc.h"

// The library and the addresses that were found in it. The library goes last.
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

// Null while no module is bound: in pure mode, in a reset period, before a start and after a stop. It is never
// destroyed: events that carry a result are released on threads of the bus for as long as the process runs.
extern zel::Snapshot<TrcFunctionTable>& g_trcModule;

// Owns a result buffer from the call that made it until the event that carries it is gone. Any thread.
class TraceResult {
public:
    TraceResult() = default;
    // Gives a buffer to the module that is bound at that moment, which may be a later load than the one that made it.
    ~TraceResult() {
        if (data_ != nullptr) give_back();
    }
    TraceResult(TraceResult&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
    TraceResult& operator=(TraceResult&&) = delete;

    // Calls a function of the module and returns its code. The module may leave a result with any code, so the code
    // says nothing about data().
    int32_t take(trace_event_work_t work, const char* input, uint64_t input_size) {
        return work(input, static_cast<uint32_t>(input_size), &data_, &size_);
    }

    char* data() const { return data_; }
    // 0 without a buffer, whatever size the module gave: a reader must not read from null.
    uint32_t size() const { return data_ != nullptr ? size_ : 0; }

    // Gives the buffer back to the module, also a null one. Without a module the buffer stays allocated.
    void give_back();
    // The same for a caller that still holds a share of the module.
    void give_back(const TrcFunctionTable& module) { module.trace_event_release(std::exchange(data_, nullptr)); }

private:
    char* data_ = nullptr;
    uint32_t size_ = 0;
};
