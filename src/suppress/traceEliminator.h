// Sheds traces under load. It keeps an account of the alerts that wait for their trace and predicts how long all of
// them will take. When that is too long it marks the least severe alerts as dropped. Only events 1536 and 1538 take
// part. All times are milliseconds.
//
// An alert weighs nProcessCount. A level's count is the sum over its alerts in the waiting list that are not dropped.
// An alert that is put off for a retry keeps its weight in the account. A dropped one loses its weight at once but
// stays in the list until it is popped.
//
// Threads: the alarm worker pushes tracked alerts; the trace worker pops them and calls UpdateCost. The mutex guards
// the waiting list, the level counts and the writing of the dropped flags. It is never held together with the mutex of
// a queue.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <list>

#include "common/delay_node.h"
#include "common/mutex.h"
#include "common/setting.h"

// The one setting of the eliminator, and its reader. A file or a key that cannot be read gives the default, and so does
// a number outside the limits; each is a WARN line. Throws std::bad_alloc.
extern const zel::Setting kSkipLevel;
uint32_t read_skip_level(zel::SettingSource* source = nullptr);

class TraceEliminator {
public:
    // For a start, while no worker runs. Sets the limit to 60000 and reads "skip_behavior_level". False only if the
    // mutex cannot be made.
    bool Init();
    // For a stop, while no worker runs. Forgets the account. The measured times stay for the next start.
    void Uninit();

    // Sets the limit. A value outside 60000 to 36000000 changes nothing. Any thread.
    void SetMaxDelay(uint32_t milliseconds);

    // Takes a node into the account when it is first queued. It must come before the node enters the queue: afterwards
    // the worker may finish and free the node at any time. Throws std::bad_alloc and then changes nothing.
    void Push(ST_DELAY_QUEQE_NODE* node) EXCLUDES(mutex_);
    // Takes a node out of the account, after its final outcome and before it is freed.
    void Pop(ST_DELAY_QUEQE_NODE* node) EXCLUDES(mutex_);
    // After a successful trace that took `cost`. It learns the cost of one process, and sheds if the prediction is over
    // the limit. Returns the milliseconds that this call's drops save.
    int32_t UpdateCost(const ST_DELAY_QUEQE_NODE* node, int32_t cost) EXCLUDES(mutex_);
    // Writes the account to the log, for diagnosis.
    void Dump() EXCLUDES(mutex_);

private:
    static constexpr int32_t kLevels = 6;  // risk levels 0 to 5, least severe first
    using PerLevel = std::array<int32_t, kLevels>;

    static bool IsTracked(const ST_DELAY_QUEQE_NODE& node);
    bool is_accounted(const ST_DELAY_QUEQE_NODE& node) const;
    bool is_trunk(int32_t level) const { return level <= skip_behavior_level_; }
    int32_t cost_of_level(int32_t level) const;
    int32_t PredictTotalCost() REQUIRES(mutex_);
    int32_t Eliminate() EXCLUDES(mutex_);
    PerLevel drop_quotas(int32_t excess) const REQUIRES(mutex_);
    int32_t drop_oldest(int32_t excess, PerLevel quotas) REQUIRES(mutex_);

    int32_t skip_behavior_level_ = 0;  // the highest level that is traced along the trunk only
    // Milliseconds for one process, as last measured. Written by the trace worker without the mutex.
    std::atomic<int32_t> trunk_trace_time_{300};
    std::atomic<int32_t> full_trace_time_{5000};
    std::list<ST_DELAY_QUEQE_NODE*> waiting_ GUARDED_BY(mutex_);  // oldest first; not owned
    PerLevel level_counts_ GUARDED_BY(mutex_){};
    std::atomic<int32_t> max_delay_{0};
    zel::Mutex mutex_;
};
