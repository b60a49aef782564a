// The adapter that would narrow the trace to one process tree: it counts its calls and selects nothing.
#include "standin/zellxadapter/zellxadapter_host.h"

#include <atomic>

#include "standin/export.h"

namespace {

std::atomic<uint64_t> calls;

}  // namespace

extern "C" {

STANDIN_EXPORT int32_t SelectProcTree(int32_t, int64_t, const char*) {
    ++calls;
    return 0;
}

STANDIN_EXPORT uint64_t zellxadapter_get_calls(void) { return calls; }

}  // extern "C"
