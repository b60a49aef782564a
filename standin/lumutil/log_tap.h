// The logger's tap: a function of the stand-in's own, through which a host sees every line of the process.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// `text` is the whole formatted line, prefix included, without a time stamp or a newline; valid during the call. Called
// on the thread that logs, one call at a time, whatever level is written; must be quick, must not log and must not set
// a tap.
typedef void (*zel_log_tap_t)(void* context, int32_t level, const char* text);

// One tap at a time; null takes it off. When this returns no call to the former tap is running.
__attribute__((visibility("default"))) void zel_log_set_tap(zel_log_tap_t tap, void* context);

#ifdef __cplusplus
}
#endif
