// What the adapter stand-in tells a host program; exported by libzellxadapter.so itself.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Calls of SelectProcTree since the library was loaded. Any thread.
typedef uint64_t (*zellxadapter_get_calls_t)(void);

#ifdef __cplusplus
}
#endif
