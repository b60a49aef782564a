// The trace module libzeltrc.so and the data store libzelds.so: types of the functions that are loaded by name.
//
// Codes are signed and have 32 bits; negative is failure. The module allocates a result buffer, or leaves it null. The
// buffer goes back to the module through trace_event_release, also after a call that failed. Several threads may call
// the module at once.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    ZEL_TRC_COMPLETE = 0,
    ZEL_TRC_DROPPED = -0x7b31fff0,    // 0x84ce0010
    ZEL_TRC_NOT_READY = -0x7b31ffeb,  // 0x84ce0015: try again later
};

typedef int32_t (*trace_event_init_t)(void);
typedef int32_t (*trace_event_uninit_t)(void);
typedef int32_t (*trace_event_release_t)(char* buffer);  // null is allowed
// Input and result are serialised vorn_trace_info messages. The input is only read.
typedef int32_t (*trace_event_work_t)(const char* input, uint32_t input_size, char** result, uint32_t* result_size);

typedef int32_t (*ds_update_db_t)(void);

#ifdef __cplusplus
}
#endif
