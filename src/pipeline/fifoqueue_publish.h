// Reports the batch of DNS hits that were repeated, when they leave the hot cache.
#pragma once

#include "suppress/fifoqueue.h"

// Builds and publishes the batch, event 770. Does nothing for an empty list. When memory runs out, the tallies are lost
// and an ERROR line says so; the entries have left the cache, so the next hit is reported anew. Alarm worker only.
void report_repeats(const ResHdlCache::CFifoQueue::Entries& entries);
