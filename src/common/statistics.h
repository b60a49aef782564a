// The figures that the plug-in reports. Any thread adds to them without a lock; a count that falls into the moment of a
// reset may be lost.
#pragma once

#include <atomic>
#include <cstdint>

using Counter = std::atomic<uint64_t>;

inline void count(Counter& counter, uint64_t n = 1) { counter.fetch_add(n, std::memory_order_relaxed); }

// 14 counters in the record's order.
struct Statistics {
    Counter recvAlarmCount;
    Counter sentToTrcCount;
    Counter sentToMbCount;
    Counter eventQueueOverflowCount;
    Counter firstTraceTotalCount;
    Counter eventQueueTotalCount;
    Counter delayedTraceTotalCount;
    Counter traceFailedCount;
    Counter hotCacheHitCount;
    Counter alertEventTotalCount;
    Counter alertEventFilterCount;
    Counter traceDroppedCount;
    Counter ioaTrunkTracePredict;  // written, not added
    Counter ioaFullTracePredict;   // written, not added

    void reset();
};

// Costs of successful traces, in milliseconds.
struct TraceCost {
    Counter traceCost;
    Counter successCount;
    Counter firstSuccessCount;
    Counter maxCost;

    void reset();
};

extern Statistics g_statistics;
extern TraceCost g_liveTraceCost;    // written by the trace stage
extern TraceCost g_reportTraceCost;  // written by the report callbacks only
