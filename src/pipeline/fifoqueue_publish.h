// The batch of DNS hits that were repeated, when they leave the hot cache.
#pragma once

#include "suppress/fifoqueue.h"

// Builds and publishes the batch; does nothing for an empty list. When memory runs out the tallies are lost with an ERROR
// line, and nothing else is. Alarm worker only.
void report_repeats(const ResHdlCache::CFifoQueue::Entries& entries);
