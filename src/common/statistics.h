// The figures that the plug-in reports. Any thread adds to them without a lock. A count that falls into the moment of a
// reset may be lost; the report is a guide and no account.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/relaxed.h"

using Counter = std::atomic<uint64_t>;

inline void count(Counter& counter, uint64_t n = 1) { counter.fetch_add(n, std::memory_order_relaxed); }

// 14 counters. A new counter is a member here and a row in kStatistics.
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

// What successful traces cost, in milliseconds.
struct TraceCost {
    Counter traceCost;
    Counter successCount;
    Counter firstSuccessCount;
    Counter maxCost;

    void reset();
    // Copies all figures, one after the other: a trace that ends meanwhile may be in one figure and not in the next.
    void take_over(const TraceCost& other);
};

// A counter under its name in the report.
struct StatisticsRow {
    const char* key;
    Counter Statistics::* counter;
};

// In the order of the report. It is the order of the members, but hotCacheHitCount and traceFailedCount change places.
inline constexpr StatisticsRow kStatistics[] = {
    {"recvAlarmCount", &Statistics::recvAlarmCount},
    {"sentToTrcCount", &Statistics::sentToTrcCount},
    {"sentToMbCount", &Statistics::sentToMbCount},
    {"eventQueueOverflowCount", &Statistics::eventQueueOverflowCount},
    {"firstTraceTotalCount", &Statistics::firstTraceTotalCount},
    {"eventQueueTotalCount", &Statistics::eventQueueTotalCount},
    {"delayedTraceTotalCount", &Statistics::delayedTraceTotalCount},
    {"hotCacheHitCount", &Statistics::hotCacheHitCount},
    {"traceFailedCount", &Statistics::traceFailedCount},
    {"alertEventTotalCount", &Statistics::alertEventTotalCount},
    {"alertEventFilterCount", &Statistics::alertEventFilterCount},
    {"traceDroppedCount", &Statistics::traceDroppedCount},
    {"ioaTrunkTracePredict", &Statistics::ioaTrunkTracePredict},
    {"ioaFullTracePredict", &Statistics::ioaFullTracePredict},
};
static_assert(sizeof(Statistics) == sizeof kStatistics / sizeof *kStatistics * sizeof(Counter),
              "each counter has one row");

// All three live until the process ends, since they have no destructor.
extern Statistics g_statistics;
extern TraceCost g_liveTraceCost;    // written by the trace stage
extern TraceCost g_reportTraceCost;  // written by the report callbacks only
