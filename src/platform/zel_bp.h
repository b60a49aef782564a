// The reporting libraries: the business-point manager libzelbpmgr.so, the SDK libzel_bpsdk.so and libodaipc.so. All are
// loaded by name with dlopen, and all are optional.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Fills `buffer` of `size` bytes with a terminated JSON member and returns 1, or writes nothing and returns 0. Runs on
// the manager's thread.
typedef int (*zel_report_cb_t)(char* buffer, uint32_t size);
// A null callback unregisters the module.
typedef int32_t (*register_report_cb_t)(const char* module, zel_report_cb_t callback);

// The head of one report. Unused bytes are zero; a member that is full has no terminator.
typedef struct ST_BP_TRACE_HEAD {
    char szModule[32];
    char szFunction[64];
    char szProduct[16];
    char szVersion[16];
    char szAgentId[16];
    char reserved[72];
} ST_BP_TRACE_HEAD;

typedef int32_t (*zel_bp_init_t)(void);
typedef int32_t (*zel_bp_trace_utf8_t)(const ST_BP_TRACE_HEAD* head, const char* format, ...);

#ifdef __cplusplus
}
static_assert(sizeof(ST_BP_TRACE_HEAD) == 216, "the SDK reads the head by its layout");
#endif
