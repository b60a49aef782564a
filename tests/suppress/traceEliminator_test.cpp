#include "suppress/traceEliminator.h"

#include <gmock/gmock.h>

#include <deque>
#include <random>

#include "common/statistics.h"
#include "support/agent_folder.h"
#include "support/log_capture.h"
#include "support/mutex_refusal.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using zel_test::LogLine;

constexpr const char* kSettings = "../config/zeltrc.ini";

struct Node : ST_DELAY_QUEQE_NODE {
    Node(int level, int processes, EVENT_ID id = event_id::ioa_alert) {
        pNode.reset(new ST_QUEQE_NODE);
        pNode->uEventId = id;
        set_guid(*pNode, (std::to_string(level) + "/" + std::to_string(processes)).c_str());
        nRiskLevel = level;
        nProcessCount = processes;
    }
};

std::vector<LogLine> logged(int32_t level = ZEL_LOG_DEBUG) { return zel_test::LogCapture::get().take_up_to(level); }

class Eliminator : public testing::Test {
protected:
    Eliminator() {
        EXPECT_TRUE(eliminator.Init());
        logged();
    }
    Node& push(int level, int processes) {
        eliminator.Push(&nodes.emplace_back(level, processes));
        return nodes.back();
    }
    // A trace at the level has ended.
    int32_t finish(int level, int32_t cost, int processes = 1) {
        const Node node(level, processes);
        return eliminator.UpdateCost(&node, cost);
    }
    std::vector<int> counts() {
        logged();
        eliminator.Dump();
        std::vector<int> result;
        for (const LogLine& line : logged())
            if (int level, count; sscanf(line.text.c_str(), "level: %d, count: %d", &level, &count) == 2)
                result.push_back(count);
        return result;
    }

    std::deque<Node> nodes;
    TraceEliminator eliminator;
};

TEST_F(Eliminator, drops_mild_and_old_alerts_until_the_excess_is_covered) {
    const Node &a = push(3, 3), &b = push(1, 4), &c = push(3, 7), &d = push(1, 6), &e = push(3, 10);
    logged();
    EXPECT_EQ(finish(3, 5000), 51'200);
    EXPECT_THAT(
        logged(),
        ElementsAre(LogLine{ZEL_LOG_DEBUG, "node event id: 1536, process count: 1, risk level: 3, cost: 5000ms"},
                    LogLine{ZEL_LOG_DEBUG, "update truck trace time: 300, full trace time: 5000"},
                    LogLine{ZEL_LOG_DEBUG, "current predict time, truck trace: 300, full trace: 5000"},
                    LogLine{ZEL_LOG_DEBUG, "total IOA and Memory Torgan alarm predict cost: 103000"},
                    LogLine{ZEL_LOG_DEBUG, "predict delay time: 103000"}, LogLine{ZEL_LOG_WARN, "drop alarm: 3/3"},
                    LogLine{ZEL_LOG_WARN, "drop alarm: 1/4"},
                    LogLine{ZEL_LOG_WARN, "drop alarm: 3/7"},  // the quota of 8 ends at -2
                    LogLine{ZEL_LOG_INFO, "drop trace will decrease: 51200ms"}));
    EXPECT_TRUE(a.bDropped && b.bDropped && c.bDropped && !d.bDropped && !e.bDropped);
    EXPECT_THAT(counts(), ElementsAre(0, 6, 0, 10, 0, 0));
}

TEST_F(Eliminator, drops_only_above_the_limit) {
    push(0, 60'000);
    EXPECT_EQ(finish(0, 1), 0);
    push(1, 1);
    EXPECT_EQ(finish(0, 1), 60'000);
    EXPECT_THAT(counts(), ElementsAre(0, 1, 0, 0, 0, 0));
    for (const uint32_t refused : {0u, 59'999u, 36'000'001u, 0xffffffffu}) eliminator.SetMaxDelay(refused);
    EXPECT_THAT(logged(), IsEmpty());
    eliminator.SetMaxDelay(36'000'000);
    EXPECT_THAT(logged(), ElementsAre(LogLine{ZEL_LOG_INFO, "set max delay second to: 36000000"}));
    push(3, 7199);
    EXPECT_EQ(finish(3, 5000), 0);
}

TEST_F(Eliminator, learns_the_cost_of_one_process_by_kind_of_level) {
    EXPECT_EQ(finish(2, 1001, 3) + finish(3, -7, 1), 0);
    EXPECT_EQ(g_statistics.ioaTrunkTracePredict, 333u);
    EXPECT_EQ(g_statistics.ioaFullTracePredict, static_cast<uint64_t>(-7));
    EXPECT_EQ(finish(3, 9, 0), 0);
    EXPECT_THAT(logged(ZEL_LOG_INFO), ElementsAre(LogLine{ZEL_LOG_ERROR, "procees count in alarm is zero!"}));
}

TEST_F(Eliminator, leaves_other_events_and_levels_out_of_the_account) {
    Node odd[] = {{-1, 100}, {6, 100}, {3, 100, event_id::kov}};
    for (Node& node : odd) eliminator.Push(&node);
    EXPECT_THAT(counts(), ElementsAre(0, 0, 0, 0, 0, 0));
    for (Node& node : odd) eliminator.Pop(&node);
    EXPECT_EQ(eliminator.UpdateCost(&odd[2], 9'000'000), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Eliminator, forgets_the_waiting_alerts_at_a_stop) {
    push(3, 20);
    eliminator.Uninit();
    nodes.clear();
    EXPECT_THAT(counts(), IsEmpty());
    ASSERT_TRUE(eliminator.Init());
    const Node& fresh = push(0, 201);
    EXPECT_EQ(finish(0, 300), 60'300);
    EXPECT_TRUE(fresh.bDropped);
    const zel_test::MutexRefusal refusal;
    EXPECT_FALSE(TraceEliminator().Init());
    EXPECT_THAT(logged(ZEL_LOG_ERROR), ElementsAre(LogLine{ZEL_LOG_ERROR, "mutex_init failed"}));
}

TEST_F(Eliminator, ends_the_process_when_a_sum_overflows) {
    for (int i = 0; i < 43; ++i) push(3, 10'000);
    EXPECT_DEATH(finish(3, 5000), "overflows");
    eliminator.Pop(&nodes.front());
    EXPECT_EQ(finish(3, 5000), 42 * 50'000'000);
}

TEST(EliminatorSettings, give_the_highest_level_of_a_trunk_trace) {
    const char* kOver = "section : trace_setting , key : skip_behavior_level failed over the limit";
    const char* kMissing = "ini_file_get section : trace_setting , key : skip_behavior_level failed";
    const struct {
        int line;
        const char* text;  // null: no file
        int level;
        const char* warning;
    } rows[] = {
        {__LINE__, nullptr, 2, " is not exist"},
        {__LINE__, "[other]\nskip_behavior_level=4", 2, kMissing},
        {__LINE__, "[trace_setting]\nskip_behavior_level=0x5", 5, nullptr},
        {__LINE__, "[trace_setting]\nskip_behavior_level=03", 3, nullptr},
        {__LINE__, "[trace_setting]\nskip_behavior_level=some", 0, nullptr},
        {__LINE__, "[trace_setting]\nskip_behavior_level=6", 2, kOver},
        {__LINE__, "[trace_setting]\nskip_behavior_level=-1", 2, kOver},
        {__LINE__, "[trace_setting]\nskip_behavior_level=4294967300", 4, nullptr},  // cut to 32 bits first
    };
    for (const auto& row : rows) {
        if (row.text != nullptr) zel_test::AgentFolder::get().write(kSettings, row.text);
        logged();
        ASSERT_TRUE(TraceEliminator().Init());
        const std::vector<LogLine> lines = logged();
        EXPECT_THAT(lines.front().text, testing::StartsWith("get @/../config/zeltrc.ini file path /"))
            << "line " << row.line;
        EXPECT_EQ(lines.back().text, "max skip behavior level: " + std::to_string(row.level)) << "line " << row.line;
        ASSERT_EQ(lines.size(), row.warning == nullptr ? 2u : 3u) << "line " << row.line;
        if (row.warning != nullptr) EXPECT_THAT(lines[1].text, testing::EndsWith(row.warning)) << "line " << row.line;
    }
    zel_test::AgentFolder::get().remove(kSettings);
}

// A plain account: sums are made anew from the live alerts each time.
struct Model {
    int64_t weight(int level) const {
        int64_t sum = 0;
        for (const auto& [node, dropped] : waiting)
            sum += !dropped && node->nRiskLevel == level ? node->nProcessCount : 0;
        return sum;
    }
    int64_t cost(int level) const { return level <= 2 ? trunk : full; }
    int64_t eliminate() {
        int64_t excess = -limit, quotas[6] = {}, saved = 0;
        for (int level = 0; level < 6; ++level) excess += weight(level) * cost(level);
        int64_t left = excess;
        for (int level = 0; level < 6 && left > 0; ++level) {
            quotas[level] = weight(level);
            if (cost(level) != 0) quotas[level] = std::min(quotas[level], (left + cost(level) - 1) / cost(level));
            left -= weight(level) * cost(level);
        }
        for (auto& [node, dropped] : waiting) {
            if (saved >= excess) break;
            if (dropped || quotas[node->nRiskLevel] <= 0) continue;
            dropped = true;
            quotas[node->nRiskLevel] -= node->nProcessCount;
            saved += node->nProcessCount * cost(node->nRiskLevel);
        }
        return saved;
    }

    std::deque<std::pair<Node*, bool>> waiting;  // with whether it is dropped
    int64_t trunk = 300, full = 5000, limit = 60'000;
};

TEST_F(Eliminator, agrees_with_a_plain_account) {
    Model model;
    std::mt19937 random(20240607);
    const auto up_to = [&](size_t n) { return static_cast<int>(random() % (n + 1)); };
    int drops = 0;
    for (int step = 0; step < 20'000; ++step) {
        const int action = up_to(9);
        if (action < 5) {
            model.waiting.emplace_back(&push(up_to(5), up_to(12)), false);
        } else if (action < 8 && !model.waiting.empty()) {
            const auto at = model.waiting.begin() + up_to(model.waiting.size() - 1);
            eliminator.Pop(at->first);
            model.waiting.erase(at);
        } else if (action == 8) {
            model.limit = 60'000 + up_to(60'000);
            eliminator.SetMaxDelay(static_cast<uint32_t>(model.limit));
        } else {
            const int level = up_to(5), processes = 1 + up_to(4), cost = up_to(up_to(3) == 0 ? 4 : 20'000);
            (level <= 2 ? model.trunk : model.full) = cost / processes;
            const int64_t saved = model.eliminate();
            ASSERT_EQ(finish(level, cost, processes), saved) << "step " << step;
            drops += saved != 0 ? 1 : 0;
        }
        std::vector<int> weights;
        for (int level = 0; level < 6; ++level) weights.push_back(static_cast<int>(model.weight(level)));
        ASSERT_EQ(counts(), weights) << "step " << step;
        for (const auto& [node, dropped] : model.waiting) ASSERT_EQ(node->bDropped, dropped) << "step " << step;
    }
    EXPECT_GT(drops, 100);
}

}  // namespace
