#include "common/statistics.h"

Statistics g_statistics;
TraceCost g_liveTraceCost;
TraceCost g_reportTraceCost;

void Statistics::reset() {
    for (Counter* counter :
         {&recvAlarmCount, &sentToTrcCount, &sentToMbCount, &eventQueueOverflowCount, &firstTraceTotalCount,
          &eventQueueTotalCount, &delayedTraceTotalCount, &traceFailedCount, &hotCacheHitCount, &alertEventTotalCount,
          &alertEventFilterCount, &traceDroppedCount, &ioaTrunkTracePredict, &ioaFullTracePredict})
        counter->store(0, std::memory_order_relaxed);
}

void TraceCost::reset() {
    for (Counter* counter : {&traceCost, &successCount, &firstSuccessCount, &maxCost})
        counter->store(0, std::memory_order_relaxed);
}
