#include "common/trc_functions.h"

#include "common/memory.h"

zel::Snapshot<TrcFunctionTable>& g_trcModule = *new zel::Snapshot<TrcFunctionTable>;

void release_trace_result(char* buffer) {
    const auto table = g_trcModule.get();
    if (table != nullptr && table->trace_event_release != nullptr)
        table->trace_event_release(buffer);
    else
        zel::leave_allocated(buffer);  // only the module could free it, and it is gone
}
