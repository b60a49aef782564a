// The trace eliminator. The model is the list of the alerts that wait; every sum is made anew from it.
#include <algorithm>
#include <deque>

#include "models/model.h"
#include "support/settings_folder.h"
#include "suppress/traceEliminator.h"

namespace models {
namespace {

enum : size_t { push, push_odd, pop, finish, finish_odd, limit, restart };

constexpr int kLevels = 6;
// Nothing here may reach what a 32-bit sum cannot hold, since that ends the process.
constexpr uint32_t kProcesses = 13;
constexpr uint32_t kCostSteps = 41;  // of half a second
constexpr uint32_t kLimits[] = {60'000, 59'999, 61'000, 90'000, 120'000, 36'000'000, 36'000'001};

struct Node : ST_DELAY_QUEQE_NODE {
    Node(int level, int processes, EVENT_ID id) {
        pNode = std::make_unique<ST_QUEQE_NODE>();
        pNode->uEventId = id;
        nRiskLevel = level;
        nProcessCount = processes;
    }
};

struct Waiting {
    std::unique_ptr<Node> node;
    bool counted;  // takes part in the account
    bool dropped = false;
};

// The component and its model side by side.
class Pair {
public:
    Pair() { start(2); }

    void play(const Step& step);

private:
    void start(uint32_t skip_level);
    void add(int level, int processes, EVENT_ID id, bool counted);
    void remove(uint32_t number);
    void end_trace(int level, int processes, int cost);
    int64_t shed();
    int64_t cost_of(int level) const { return level <= skip_level_ ? trunk_ : full_; }

    TraceEliminator eliminator_;
    std::deque<Waiting> waiting_;  // the oldest first
    int skip_level_ = 2;
    int64_t trunk_ = 300, full_ = 5000;  // what one process costs, as last measured
    int64_t limit_ = 60'000;
};

// A stop discards what waits; what was measured stays.
void Pair::start(uint32_t skip_level) {
    eliminator_.Uninit();
    waiting_.clear();
    zel_test::SettingsFolder::get().write("zeltrc.ini",
                                          "[trace_setting]\nskip_behavior_level=" + std::to_string(skip_level) + "\n");
    RC_ASSERT(eliminator_.Init());
    skip_level_ = static_cast<int>(skip_level);
    limit_ = 60'000;
}

void Pair::add(int level, int processes, EVENT_ID id, bool counted) {
    Waiting& added = waiting_.emplace_back(std::make_unique<Node>(level, processes, id), counted);
    eliminator_.Push(added.node.get());
}

void Pair::remove(uint32_t number) {
    if (waiting_.empty()) return;
    const auto gone = waiting_.begin() + number % static_cast<uint32_t>(waiting_.size());
    eliminator_.Pop(gone->node.get());
    waiting_.erase(gone);
}

// The mild levels lose all of their processes, until what is left of the excess fits into one level. Then the oldest
// alerts go, whatever their level, as long as their level may lose something and the excess is not covered.
int64_t Pair::shed() {
    int64_t weight[kLevels] = {}, quota[kLevels] = {}, excess = -limit_, saved = 0;
    for (const Waiting& alert : waiting_)
        if (alert.counted && !alert.dropped) weight[alert.node->nRiskLevel] += alert.node->nProcessCount;
    for (int level = 0; level < kLevels; ++level) excess += weight[level] * cost_of(level);
    int64_t left = excess;
    for (int level = 0; level < kLevels && left > 0; ++level) {
        const int64_t cost = cost_of(level);
        quota[level] = cost == 0 ? weight[level] : std::min(weight[level], (left + cost - 1) / cost);
        left -= weight[level] * cost;
    }
    for (Waiting& alert : waiting_) {
        if (saved >= excess) break;
        if (!alert.counted || alert.dropped || quota[alert.node->nRiskLevel] <= 0) continue;
        alert.dropped = true;
        quota[alert.node->nRiskLevel] -= alert.node->nProcessCount;
        saved += alert.node->nProcessCount * cost_of(alert.node->nRiskLevel);
    }
    return saved;
}

void Pair::end_trace(int level, int processes, int cost) {
    const Node node(level, processes, event_id::memory_trojan);
    (level <= skip_level_ ? trunk_ : full_) = cost / processes;
    const int64_t saved = shed();
    RC_ASSERT(eliminator_.UpdateCost(&node, cost) == saved);
}

void Pair::play(const Step& step) {
    const int level = static_cast<int>(step[0]), processes = static_cast<int>(step[1]);
    switch (step.act) {
        case push: add(level, processes, event_id::ioa_alert, true); break;
        case push_odd:
            // A level outside the account, or an event that takes no part.
            if (level == kLevels) {
                add(kLevels, processes, event_id::ioa_alert, false);
            } else {
                add(level, processes, event_id::kov, false);
            }
            break;
        case pop: remove(step[0]); break;
        case finish: end_trace(level, processes + 1, static_cast<int>(step[2]) * 500); break;
        case finish_odd: {
            // No account of an event that takes no part, nor of a trace without processes.
            const Node other(level, 1, event_id::ioc), empty(level, 0, event_id::ioa_alert);
            RC_ASSERT(eliminator_.UpdateCost(&other, 9'000'000) == 0);
            RC_ASSERT(eliminator_.UpdateCost(&empty, 9'000'000) == 0);
            break;
        }
        case limit: {
            const uint32_t wanted = kLimits[step[0]];
            eliminator_.SetMaxDelay(wanted);
            if (wanted >= 60'000 && wanted <= 36'000'000) limit_ = wanted;
            break;
        }
        default: start(step[0]); break;
    }
    for (const Waiting& alert : waiting_) RC_ASSERT(alert.node->bDropped.load() == alert.dropped);
}

void play(const Steps& steps) {
    Pair pair;
    for (const Step& step : steps.list) pair.play(step);
}

std::string limit_shown(const std::array<uint32_t, 3>& numbers) { return std::to_string(kLimits[numbers[0]]) + " ms"; }
std::string finish_shown(const std::array<uint32_t, 3>& numbers) {
    return "level " + std::to_string(numbers[0]) + ", " + std::to_string(numbers[1] + 1) + " processes, " +
           std::to_string(numbers[2] * 500) + " ms";
}

}  // namespace

const Model& eliminator() {
    static const Model model{"eliminator",
                             {{"push level, processes", 50, {kLevels, kProcesses}},
                              {"push uncounted level, processes", 3, {kLevels + 1, kProcesses}},
                              {"pop number", 25, {1000}},
                              {"finish", 15, {kLevels, 2, kCostSteps}, finish_shown},
                              {"finish uncounted level", 2, {kLevels}},
                              {"limit", 5, {std::size(kLimits)}, limit_shown},
                              {"restart with skip level", 1, {kLevels}}},
                             300,
                             play};
    return model;
}

}  // namespace models
