// The trace module as it is bound at the moment.
//
// The module can be unloaded while a call into it runs, so nobody uses a bare pointer: who calls takes the shared table
// and keeps it for the call. Taking the table out returns at once; the library is closed by whoever lets go of it last.
#pragma once

#include <memory>

#include "common/module_path.h"
#include "common/mutex.h"
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

class TrcBinding {
public:
    // Null while the module is not loaded.
    std::shared_ptr<const TrcFunctionTable> get() const;
    // Replaces the table and returns the one before.
    std::shared_ptr<const TrcFunctionTable> exchange(std::shared_ptr<const TrcFunctionTable> table);

private:
    mutable zel::PlainMutex mutex_;
    std::shared_ptr<const TrcFunctionTable> table_ GUARDED_BY(mutex_);
};

// Never destroyed: events are released on threads of the bus for as long as the process runs.
extern TrcBinding& g_trcModule;

// Gives a result back to the module; without the module the buffer stays allocated. Null is passed on.
void release_trace_result(char* buffer);
