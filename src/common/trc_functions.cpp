#include "common/trc_functions.h"

#include <utility>

#include "common/memory.h"

TrcBinding& g_trcModule = *new TrcBinding;

std::shared_ptr<const TrcFunctionTable> TrcBinding::get() const {
    const zel::Lock lock(mutex_);
    return table_;
}

std::shared_ptr<const TrcFunctionTable> TrcBinding::exchange(std::shared_ptr<const TrcFunctionTable> table) {
    const zel::Lock lock(mutex_);
    return std::exchange(table_, std::move(table));
}

void release_trace_result(char* buffer) {
    const auto table = g_trcModule.get();
    if (table != nullptr && table->trace_event_release != nullptr)
        table->trace_event_release(buffer);
    else
        zel::leave_allocated(buffer);  // only the unloaded module could free it
}
