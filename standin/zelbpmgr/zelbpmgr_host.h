// What the business-point manager stand-in offers to a host program beside register_report_cb. The functions are
// exported by libzelbpmgr.so itself: keep the library open while they are used. C linkage, any thread.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// One answer of a callback: its result, and what it wrote. `text` is always terminated; it is empty unless the callback
// wrote something, and valid during the visit.
typedef void (*zelbpmgr_report_t)(void* context, const char* module, int32_t result, const char* text);

enum {
    ZELBPMGR_CALLER,      // on the thread of the call
    ZELBPMGR_OWN_THREAD,  // on a thread of the library; the call returns when it has ended
};
// Asks each module for its report, in the order of registration, with a zeroed buffer of `buffer_size` bytes (null for
// size 0), and hands each answer to `report`. Returns how many modules were asked. May be called as often as wanted,
// also from several threads at once. A callback that is unregistered meanwhile is not called any more.
typedef uint32_t (*zelbpmgr_collect_t)(int32_t thread, uint32_t buffer_size, zelbpmgr_report_t report, void* context);

#ifdef __cplusplus
}
#endif
