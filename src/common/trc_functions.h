// The trace module as it is bound at the moment. It can be unloaded while a call into it runs, so nobody keeps a bare
// pointer: who calls takes a share of the table, and the library is closed with the last share.
#pragma once

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

// Never destroyed: events are released on threads of the bus for as long as the process runs.
extern zel::Snapshot<TrcFunctionTable>& g_trcModule;

// Gives a result back to the module, a null one too. Without the module the buffer stays allocated.
void release_trace_result(char* buffer);
