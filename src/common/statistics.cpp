#include "common/statistics.h"

Statistics g_statistics;
TraceCost g_liveTraceCost;
TraceCost g_reportTraceCost;

namespace {

constexpr Counter TraceCost::* kCosts[] = {&TraceCost::traceCost, &TraceCost::successCount,
                                           &TraceCost::firstSuccessCount, &TraceCost::maxCost};

}  // namespace

void Statistics::reset() {
    for (const StatisticsRow& row : kStatistics) (this->*row.counter).store(0, std::memory_order_relaxed);
}

void TraceCost::reset() {
    for (const auto cost : kCosts) (this->*cost).store(0, std::memory_order_relaxed);
}

void TraceCost::take_over(const TraceCost& other) {
    for (const auto cost : kCosts) (this->*cost).store(value_of(other.*cost), std::memory_order_relaxed);
}
