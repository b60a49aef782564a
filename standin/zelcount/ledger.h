// What the stand-ins of data store and trace module count. The library of this ledger is never unloaded, so that the
// figures go on from one load of a module to the next and a result buffer is known to whichever load gets it back. Any
// thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "standin/export.h"

namespace zelcount {

STANDIN_EXPORT void ds_loaded();
STANDIN_EXPORT void ds_unloaded();
STANDIN_EXPORT void ds_updated();

struct TraceBuffer {
    const char* buffer;
    uint32_t size;
    uint64_t load;
    std::string guid;
};

STANDIN_EXPORT void trc_loaded();
// The buffers that are outstanding: those that the host explains by number, the others one by one.
struct Leftover {
    uint64_t explained = 0;
    std::vector<TraceBuffer> unexplained;
};
STANDIN_EXPORT Leftover trc_unloaded();

// A call of a function, by its number in zeltrc_host.h; one that works on a message also has an end.
STANDIN_EXPORT void trc_called(uint32_t function);
STANDIN_EXPORT void trc_answered(int32_t code);

// True for the first `times` askings for an alert, which then waits.
STANDIN_EXPORT bool trc_not_ready(const std::string& guid, uint64_t times);
// The alert no longer waits. How often it was not ready is kept only if another of its traces will follow.
STANDIN_EXPORT void trc_settled(const std::string& guid, bool another_follows);

STANDIN_EXPORT void trc_handed_out(const char* buffer, uint32_t size, const std::string& guid);
// True if the buffer was outstanding: the caller frees it.
STANDIN_EXPORT bool trc_taken_back(const char* buffer);

}  // namespace zelcount
