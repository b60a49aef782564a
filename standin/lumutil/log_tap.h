// The logger's tap. Through this function, which only the stand-in has, a host sees every line of the process.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// `text` is the whole formatted line with its prefix, without time stamp and newline. Control characters that came in
// with an argument are escaped. It is valid during the call. The tap runs on the thread that logs, one call at a time,
// for lines of every level. It must be quick, must not log, must not set a tap and must not fork: a fork waits for the
// call that is running.
typedef void (*zel_log_tap_t)(void* context, int32_t level, const char* text);

// Sets the one tap; null takes it off. When this returns, no call of the former tap is running.
__attribute__((visibility("default"))) void zel_log_set_tap(zel_log_tap_t tap, void* context);

#ifdef __cplusplus
}
#endif
