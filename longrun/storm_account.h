// The account of the eliminator, kept a second time from the log alone: which alerts wait, what each pass sheds, and
// whether it had to. It also knows the end of each alert and the longest queues.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/load/queue_peaks.h"

namespace zelhost {

// What the log has shown so far.
struct StormFigures {
    uint64_t passes = 0;           // predictions
    uint64_t shedding_passes = 0;  // of these, over the limit
    uint64_t drops = 0;
    uint64_t overshoots = 0;    // passes that saved more than the excess
    uint64_t exhausted = 0;     // passes that ran out of alerts before the excess was covered
    uint64_t older_severe = 0;  // drops of an alert while a milder one, younger, was left
    uint64_t settled = 0;       // drops whose alert the trace stage has reported as dropped
    int64_t largest_prediction = 0;
    QueuePeaks queues;
    uint64_t most_waiting = 0;  // alerts in the account at once
    uint64_t full_lines = 0;    // of the intake
    uint64_t savings_lines = 0;
};

class StormAccount {
public:
    // For alerts whose numbers are below `alerts`. Levels up to `skip_level` cost the trunk time, those above it the
    // full time.
    StormAccount(uint64_t alerts, int skip_level);

    // Takes a line of the log, on the thread that logs.
    void line(const LogLine& line);
    // The limit for the passes to come. No pass may be under way.
    void set_limit(int64_t milliseconds);

    StormFigures figures() const;
    // The number of alerts that have an end.
    uint64_t count_ended() const;
    // The first faults in words, and the number of all. A fault is whatever the eliminator did otherwise than this
    // account.
    std::vector<std::string> faults() const;
    uint64_t fault_count() const;

private:
    static constexpr int kLevels = 6;
    using PerLevel = std::array<int64_t, kLevels>;

    enum class End : uint8_t { none, success, failed, dropped };
    struct Alert {
        uint64_t number;
        int level;
        int processes;
        bool dropped = false;
    };
    using Waiting = std::list<Alert>;
    // One pass: from its prediction to the next line of the same thread that is not about a drop.
    struct Pass {
        int64_t excess = 0;
        int64_t remaining = 0;
        PerLevel quotas{};
        Waiting::iterator at;           // the walk has come here
        std::optional<Alert> in_doubt;  // its push may or may not have been in the account
    };

    void push(const Alert& alert);
    void pop(uint64_t number);
    void begin_pass(int64_t prediction);
    void drop(uint64_t number);
    void end_pass(std::string_view text);
    void end_alert(uint64_t number, End end);
    int64_t predict(const PerLevel& counts) const;
    PerLevel quotas(int64_t excess, const PerLevel& counts) const;
    int64_t cost(int level) const { return level <= skip_level_ ? trunk_ : full_; }
    void fault(std::string text);

    mutable std::mutex mutex_;
    const int skip_level_;
    int64_t limit_ = 60000;
    int64_t trunk_ = 300;
    int64_t full_ = 5000;
    PerLevel counts_{};
    Waiting waiting_;
    std::optional<Pass> pass_;
    std::vector<Alert> pushed_in_pass_;
    std::vector<End> ends_;
    std::vector<bool> shed_;
    StormFigures figures_;
    std::vector<std::string> faults_;
    uint64_t fault_count_ = 0;
};

}  // namespace zelhost
