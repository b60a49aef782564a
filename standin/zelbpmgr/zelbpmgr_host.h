// What the stand-in of the business-point manager offers a host program beside register_report_cb. libzelbpmgr.so
// itself exports the functions, so the host keeps the library open while it uses them. C linkage, any thread.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// One answer of a callback: its result and what it wrote. `text` is always terminated and is empty when the callback
// wrote nothing. It is valid during the call.
typedef void (*zelbpmgr_report_t)(void* context, const char* module, int32_t result, const char* text);

enum {
    ZELBPMGR_CALLER,      // on the thread of the call
    ZELBPMGR_OWN_THREAD,  // on a thread of the library; the call returns when it has ended
};
// Asks each module for its report, in the order of registration, with a zeroed buffer of `buffer_size` bytes (null for
// size 0). Hands each answer to `report`. Returns how many modules were asked. Several threads may collect at once. A
// callback that is unregistered meanwhile is not called any more.
typedef uint32_t (*zelbpmgr_collect_t)(int32_t thread, uint32_t buffer_size, zelbpmgr_report_t report, void* context);

#ifdef __cplusplus
}
#endif
