// The adapter would narrow a trace to one process tree. This one selects nothing, and every trace stays whole.
#include <stdint.h>

#include "standin/export.h"

extern "C" STANDIN_EXPORT int32_t SelectProcTree(int32_t, int64_t, const char*) { return 0; }
