// What the stand-ins of data store and trace module count. The library of this ledger is never unloaded. So the figures
// go on from one load of a module to the next, and a result buffer is known to whichever load gets it back. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "standin/export.h"

namespace zelcount {

// The data store: a load, an unload, a call of ds_update_db. An unload in a child process that was forked after the
// load is none; the same holds for the trace module below.
STANDIN_EXPORT void ds_loaded();
STANDIN_EXPORT void ds_unloaded();
STANDIN_EXPORT void ds_updated();

// A result that was handed out and is not back.
struct TraceBuffer {
    const char* buffer;
    uint32_t size;
    uint64_t load;
    std::string guid;
};

STANDIN_EXPORT void trc_loaded();
// The buffers that are outstanding at an unload. The host explains some of them, which are only counted; the others are
// named one by one.
struct Leftover {
    uint64_t explained = 0;
    std::vector<TraceBuffer> unexplained;
};
STANDIN_EXPORT Leftover trc_unloaded();

// The begin of a call, by the number of its function in zeltrc_host.h. A call that works on a message also has an end.
STANDIN_EXPORT void trc_called(uint32_t function);
STANDIN_EXPORT void trc_answered(int32_t code);

// True the first `times` that it is asked for an alert; the alert waits then.
STANDIN_EXPORT bool trc_not_ready(const std::string& guid, uint64_t times);
// The alert no longer waits. The ledger keeps how often it was not ready only if another trace of it will follow.
STANDIN_EXPORT void trc_settled(const std::string& guid, bool another_follows);

// The trace module gives a result to its caller.
STANDIN_EXPORT void trc_handed_out(const char* buffer, uint32_t size, const std::string& guid);
// True if the buffer was outstanding. The caller frees it then, and only then.
STANDIN_EXPORT bool trc_taken_back(const char* buffer);

}  // namespace zelcount
