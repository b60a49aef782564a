// The longest queues that the log shows.
#pragma once

#include <cstdint>

#include "host/lib/figures.h"

namespace zelhost {

// Only the log knows the queues; the plug-in reports just how often one overflowed. One thread at a time.
class QueuePeaks {
public:
    // True when the line told a size.
    bool line(const LogLine& line);

    // Each append to the event queue has a line. The other two are seen when an event is refused.
    // In entries. An instance that has read no line has 0 for each.
    uint64_t event = 0, trc = 0, delay = 0;
};

}  // namespace zelhost
