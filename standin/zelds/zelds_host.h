// What the stand-in of the data store tells a host program. libzelcount.so keeps the counts. It lies beside libzelds.so
// and stays in the process, so the counts go on over every load. A host opens that library and resolves the function
// there.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct zelds_counts {
    uint64_t loads;  // a library that the sanitizer build keeps in memory counts once
    uint64_t unloads;
    uint64_t updates;  // calls of ds_update_db
};
// Any thread.
typedef void (*zelds_get_counts_t)(struct zelds_counts* counts);

#ifdef __cplusplus
}
#endif
