#include "suppress/traceEliminator.h"

#include <cstdlib>
#include <string>

#include "common/checks.h"
#include "common/ini_file.h"
#include "common/log.h"
#include "common/module_path.h"
#include "common/statistics.h"

// This file belongs to the trace module, so it has a reader of its own with other rules: a missing key gives the
// default and not 0, and a number is cut to 32 bits before it is tested.
constinit const zel::Setting kSkipLevel{"@/../config/zeltrc.ini", "trace_setting", "skip_behavior_level", 2, 0, 5, 0};

namespace {

constexpr uint32_t kLowestMaxDelay = 60000;
constexpr uint32_t kHighestMaxDelay = 36000000;

uint32_t read_level(void* ini, zel::SettingSource* source) {
    const char* text = zel_ini_file_get(ini, kSkipLevel.section, kSkipLevel.key);
    if (text == nullptr) {
        zel::note_found(source, zel::SettingSource::no_key);
        zel::note_counted(source, 0, true);
        LOG_WARN("ini_file_get section : %s , key : %s failed", kSkipLevel.section, kSkipLevel.key);
        return kSkipLevel.otherwise;
    }
    zel::note_found(source, zel::SettingSource::in_file, text);
    const auto level = static_cast<uint32_t>(strtoul(text, nullptr, kSkipLevel.base));
    const bool is_outside = level < kSkipLevel.lowest || level > kSkipLevel.highest;
    zel::note_counted(source, level, is_outside);
    if (is_outside) {
        LOG_WARN("section : %s , key : %s failed over the limit", kSkipLevel.section, kSkipLevel.key);
        return kSkipLevel.otherwise;
    }
    return level;
}

}  // namespace

uint32_t read_skip_level(zel::SettingSource* source) {
    zel::note_found(source, zel::SettingSource::no_file);
    zel::note_counted(source, 0, true);
    const std::string path = zel::module_path(kSkipLevel.file);
    LOG_INFO("get %s file path %s", kSkipLevel.file, path.c_str());
    if (zel_path_is_exist_u(path.c_str()) == 0) {
        LOG_WARN("file path %s is not exist", path.c_str());
        return kSkipLevel.otherwise;
    }
    const zel::IniFile ini = zel::load_ini(path.c_str());
    if (ini == nullptr) {
        LOG_WARN("file path %s ini_file_load error", path.c_str());
        return kSkipLevel.otherwise;
    }
    return read_level(ini.get(), source);
}

bool TraceEliminator::Init() {
    if (!mutex_.init()) {
        LOG_ERROR("mutex_init failed");
        return false;
    }
    max_delay_.store(static_cast<int32_t>(kLowestMaxDelay), std::memory_order_relaxed);
    skip_behavior_level_ = static_cast<int32_t>(read_skip_level());
    LOG_INFO("max skip behavior level: %d", skip_behavior_level_);
    return true;
}

// A stop discards what is queued without popping it. If the waiting list kept those addresses, the next start would
// touch freed nodes.
void TraceEliminator::Uninit() {
    {
        const zel::Lock lock(mutex_);
        level_counts_.fill(0);
        waiting_.clear();
    }
    mutex_.destroy();
}

void TraceEliminator::SetMaxDelay(uint32_t milliseconds) {
    if (milliseconds < kLowestMaxDelay || milliseconds > kHighestMaxDelay) return;
    // The line says "second" although the number is in milliseconds.
    const auto limit = static_cast<int32_t>(milliseconds);
    LOG_INFO("set max delay second to: %d", limit);
    max_delay_.store(limit, std::memory_order_relaxed);
}

bool TraceEliminator::IsTracked(const ST_DELAY_QUEQE_NODE& node) {
    const EVENT_ID id = node.pNode->uEventId;
    return id == event_id::ioa_alert || id == event_id::memory_trojan;
}

// Levels outside 0 to 5 have no count; an alert of such a level waits and is never shed. Without a mutex, that is
// between a stop and a start, nothing is accounted.
bool TraceEliminator::is_accounted(const ST_DELAY_QUEQE_NODE& node) const {
    return mutex_.valid() && node.nRiskLevel >= 0 && node.nRiskLevel < kLevels;
}

void TraceEliminator::Push(ST_DELAY_QUEQE_NODE* node) {
    if (!IsTracked(*node) || !is_accounted(*node)) return;
    LOG_DEBUG("node event id: %d, process count: %d, risk level: %d, guid: %s, push into eliminator",
              static_cast<int>(node->pNode->uEventId), node->nProcessCount, node->nRiskLevel, node->pNode->szGuid);
    std::list<ST_DELAY_QUEQE_NODE*> cell{node};  // may fail, so it comes before all changes and before the lock
    const zel::Lock lock(mutex_);
    int32_t& count = level_counts_[static_cast<size_t>(node->nRiskLevel)];
    count = zel::checked_add(count, node->nProcessCount);
    waiting_.splice(waiting_.end(), cell);
}

void TraceEliminator::Pop(ST_DELAY_QUEQE_NODE* node) {
    if (!IsTracked(*node) || !is_accounted(*node)) return;
    LOG_DEBUG("node event id: %d, process count: %d, risk level: %d, guid: %s, pop from eliminator",
              static_cast<int>(node->pNode->uEventId), node->nProcessCount, node->nRiskLevel, node->pNode->szGuid);
    const zel::Lock lock(mutex_);
    int32_t& count = level_counts_[static_cast<size_t>(node->nRiskLevel)];
    // A dropped alert lost its weight when it was dropped.
    if (!node->bDropped.load(std::memory_order_relaxed)) count = zel::checked_sub(count, node->nProcessCount);
    waiting_.remove(node);
}

int32_t TraceEliminator::UpdateCost(const ST_DELAY_QUEQE_NODE* node, int32_t cost) {
    if (!IsTracked(*node)) return 0;
    if (node->nProcessCount == 0) {
        LOG_ERROR("procees count in alarm is zero!");
        return 0;
    }
    LOG_DEBUG("node event id: %d, process count: %d, risk level: %d, cost: %dms",
              static_cast<int>(node->pNode->uEventId), node->nProcessCount, node->nRiskLevel, cost);
    // The last measurement replaces the one before. There is no average, so the prediction follows a change of load at
    // once. The division is done in 64 bits, because the smallest 32-bit number by -1 would overflow.
    std::atomic<int32_t>& measured = is_trunk(node->nRiskLevel) ? trunk_trace_time_ : full_trace_time_;
    measured.store(static_cast<int32_t>(int64_t{cost} / node->nProcessCount), std::memory_order_relaxed);

    const int32_t trunk = trunk_trace_time_.load(std::memory_order_relaxed);
    const int32_t full = full_trace_time_.load(std::memory_order_relaxed);
    g_statistics.ioaTrunkTracePredict.store(static_cast<uint64_t>(int64_t{trunk}), std::memory_order_relaxed);
    g_statistics.ioaFullTracePredict.store(static_cast<uint64_t>(int64_t{full}), std::memory_order_relaxed);
    LOG_DEBUG("update truck trace time: %d, full trace time: %d", trunk, full);

    const int32_t saved = Eliminate();
    if (saved != 0) LOG_INFO("drop trace will decrease: %dms", saved);
    return saved;
}

int32_t TraceEliminator::cost_of_level(int32_t level) const {
    return (is_trunk(level) ? trunk_trace_time_ : full_trace_time_).load(std::memory_order_relaxed);
}

int32_t TraceEliminator::PredictTotalCost() {
    LOG_DEBUG("current predict time, truck trace: %d, full trace: %d",
              trunk_trace_time_.load(std::memory_order_relaxed), full_trace_time_.load(std::memory_order_relaxed));
    int32_t total = 0;
    for (int32_t level = 0; level < kLevels; ++level)
        total =
            zel::checked_add(total, zel::checked_mul(level_counts_[static_cast<size_t>(level)], cost_of_level(level)));
    LOG_DEBUG("total IOA and Memory Torgan alarm predict cost: %d", total);
    return total;
}

int32_t TraceEliminator::Eliminate() {
    const zel::Lock lock(mutex_);
    const int32_t prediction = PredictTotalCost();
    LOG_DEBUG("predict delay time: %d", prediction);
    const int32_t limit = max_delay_.load(std::memory_order_relaxed);
    // A prediction that equals the limit is still within it.
    if (limit >= prediction) return 0;
    const int32_t excess = zel::checked_sub(prediction, limit);
    return zel::checked_sub(excess, drop_oldest(excess, drop_quotas(excess)));
}

// Works out how many processes each level may lose. The mild levels lose all of theirs, until what is left of the
// excess fits into one level. A level with cost 0 saves nothing, so it never ends the search.
TraceEliminator::PerLevel TraceEliminator::drop_quotas(int32_t excess) const {
    PerLevel quotas{};
    int32_t remaining = excess;
    for (int32_t level = 0; level < kLevels; ++level) {
        const auto index = static_cast<size_t>(level);
        const int32_t cost = cost_of_level(level);
        const int32_t after = zel::checked_sub(remaining, zel::checked_mul(level_counts_[index], cost));
        if (after <= 0 && cost != 0) {
            quotas[index] = remaining / cost + (remaining % cost != 0 ? 1 : 0);
            break;
        }
        quotas[index] = level_counts_[index];
        remaining = after;
    }
    return quotas;
}

// Walks the list once in order of age, over all levels. An alert is dropped whole, so it may take its level's quota
// below 0 and save more than was asked for. Returns what is left of the excess; 0 or less means that it is covered.
int32_t TraceEliminator::drop_oldest(int32_t excess, PerLevel quotas) {
    int32_t remaining = excess;
    for (ST_DELAY_QUEQE_NODE* node : waiting_) {
        const auto index = static_cast<size_t>(node->nRiskLevel);
        if (node->bDropped.load(std::memory_order_relaxed) || quotas[index] <= 0) continue;
        LOG_WARN("drop alarm: %s", node->pNode->szGuid);
        remaining = zel::checked_sub(remaining, zel::checked_mul(node->nProcessCount, cost_of_level(node->nRiskLevel)));
        node->bDropped.store(true, std::memory_order_relaxed);
        level_counts_[index] = zel::checked_sub(level_counts_[index], node->nProcessCount);
        quotas[index] = zel::checked_sub(quotas[index], node->nProcessCount);
        if (remaining <= 0) break;
    }
    return remaining;
}

void TraceEliminator::Dump() {
    LOG_DEBUG("skip behavior level: %d, trunk trace predict: %dms, full trace precit: %dms", skip_behavior_level_,
              trunk_trace_time_.load(std::memory_order_relaxed), full_trace_time_.load(std::memory_order_relaxed));
    if (!mutex_.valid()) return;
    const zel::Lock lock(mutex_);
    for (int32_t level = 0; level < kLevels; ++level)
        LOG_DEBUG("level: %d, count: %d", level, level_counts_[static_cast<size_t>(level)]);
}
