// What the stand-in of the trace module tells a host program. libzelcount.so keeps all of it. It lies beside
// libzeltrc.so and stays in the process, because a result may be released into a later load than the one that made it.
// A host opens that library and resolves the functions there, before the plug-in loads the module or at any later time.
// The type NAME_t is that of the function NAME. C linkage, any thread.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    ZELTRC_INIT,
    ZELTRC_UNINIT,
    ZELTRC_RELEASE,
    ZELTRC_COMPLETION,
    ZELTRC_CREATE,
    ZELTRC_EXPAND,
    ZELTRC_DISPOSE,
    ZELTRC_FUNCTIONS,
};

// `function` in the counts below is one of the numbers above. The four from ZELTRC_COMPLETION on work on a message.
struct zeltrc_counts {
    // A library that the sanitizer build keeps in memory counts once; calls[ZELTRC_INIT] counts its starts.
    uint64_t loads;
    uint64_t unloads;
    uint64_t calls[ZELTRC_FUNCTIONS];  // begun
    uint64_t running;                  // calls that work on a message at this moment
    uint64_t complete;                 // answers of such calls, by code
    uint64_t not_ready;
    uint64_t dropped;
    uint64_t failed;
    uint64_t null_releases;     // trace_event_release with a null buffer
    uint64_t foreign_releases;  // with a pointer that is not outstanding; left alone
    uint64_t outstanding;       // result buffers handed out and not released
    uint64_t waiting;           // alerts whose last answer was "not ready"
};
typedef void (*zeltrc_get_counts_t)(struct zeltrc_counts* counts);

// Asked at each unload of the module, once for each outstanding buffer. The answer is not 0 if a living event or a
// known leak explains the buffer. Explained buffers are summed up in one INFO line; each of the others gets an ERROR
// line. Without an explainer none is explained. A null function takes the explainer off; a host does that before
// anything that the explainer uses ends. When zeltrc_set_explainer returns, no call of the former explainer is running.
// An explainer must not call back into this library.
typedef int32_t (*zeltrc_explain_t)(void* context, const char* buffer);
typedef void (*zeltrc_set_explainer_t)(zeltrc_explain_t explain, void* context);

#ifdef __cplusplus
}
#endif
