// The adapter that would narrow the trace to one process tree: it selects nothing.
#include <stdint.h>

#include "standin/export.h"

extern "C" STANDIN_EXPORT int32_t SelectProcTree(int32_t, int64_t, const char*) { return 0; }
