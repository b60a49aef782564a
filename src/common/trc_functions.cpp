#include "common/trc_functions.h"

#include "common/memory.h"
#include "common/never_ends.h"

namespace {

constinit zel::NeverEnds<zel::Snapshot<TrcFunctionTable>> g_module;

}  // namespace

zel::Snapshot<TrcFunctionTable>& g_trcModule = *g_module;

void TraceResult::give_back() {
    const auto module = g_trcModule.get();
    if (module != nullptr && module->trace_event_release != nullptr)
        give_back(*module);
    else
        zel::leave_allocated(std::exchange(data_, nullptr));  // only the module could free it, and it is gone
}
