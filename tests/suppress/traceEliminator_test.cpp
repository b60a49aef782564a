// Which waiting alerts the eliminator drops, by costs that tests give it, and how it reads its setting. The models hold
// it against a plain account.
#include "suppress/traceEliminator.h"

#include <gtest/gtest.h>

#include <deque>

#include "common/statistics.h"
#include "support/log_capture.h"
#include "support/refusals.h"
#include "support/settings_folder.h"

namespace {

constexpr const char* kSettings = "zeltrc.ini";

struct Node : ST_DELAY_QUEQE_NODE {
    Node(int level, int processes, EVENT_ID id = event_id::ioa_alert) {
        pNode.reset(new ST_QUEQE_NODE);
        pNode->uEventId = id;
        set_guid(*pNode, (std::to_string(level) + "/" + std::to_string(processes)).c_str());
        nRiskLevel = level;
        nProcessCount = processes;
    }
};

std::string logged(int32_t level = ZEL_LOG_DEBUG) { return zel_test::LogCapture::get().take_text(level); }

class Eliminator : public testing::Test {
protected:
    Eliminator() {
        EXPECT_TRUE(eliminator.Init());
        logged();
    }
    Node& push(int level, int processes, EVENT_ID id = event_id::ioa_alert) {
        eliminator.Push(&nodes.emplace_back(level, processes, id));
        return nodes.back();
    }
    // A trace at the level has ended.
    int32_t finish(int level, int32_t cost, int processes = 1) {
        const Node node(level, processes);
        return eliminator.UpdateCost(&node, cost);
    }

    std::deque<Node> nodes;
    TraceEliminator eliminator;
};

TEST_F(Eliminator, DropsMildAndOldAlertsUntilTheExcessIsCovered) {
    for (const auto& [level, processes] : {std::pair{3, 3}, {1, 4}, {3, 7}, {1, 6}}) push(level, processes);
    push(3, 10, event_id::memory_trojan);
    logged();
    EXPECT_EQ(finish(3, 5000), 51'200);
    EXPECT_EQ(logged(),
              "D node event id: 1536, process count: 1, risk level: 3, cost: 5000ms\n"
              "D update truck trace time: 300, full trace time: 5000\n"
              "D current predict time, truck trace: 300, full trace: 5000\n"
              "D total IOA and Memory Torgan alarm predict cost: 103000\nD predict delay time: 103000\n"
              "W drop alarm: 3/3\nW drop alarm: 1/4\nW drop alarm: 3/7\nI drop trace will decrease: 51200ms\n");
}

// A stop and a start stand between the rows, and nothing of a row before waits any more.
TEST_F(Eliminator, DropsOnlyAboveItsLimit) {
    const struct {
        int trunk, full;
        std::vector<std::pair<int, int>> waiting;  // level and processes
        std::string drops;
        int saved;
    } rows[] = {
        {.trunk = 1, .full = 9, .waiting = {{0, 60'000}}, .drops = "", .saved = 0},
        {.trunk = 1, .full = 9, .waiting = {{0, 60'000}, {1, 1}}, .drops = "0/60000 ", .saved = 60'000},
        {.trunk = 300, .full = 5000, .waiting = {{3, 12}, {0, 4}}, .drops = "0/4 ", .saved = 1200},
        {.trunk = 0, .full = 5000, .waiting = {{0, 5}, {3, 12}}, .drops = "", .saved = 0},
        {.trunk = 0, .full = 60'000, .waiting = {{0, 5}, {3, 1}, {3, 1}}, .drops = "0/5 3/1 ", .saved = 60'000},
    };
    for (const auto& row : rows) {
        eliminator.Uninit();
        const auto first = static_cast<std::ptrdiff_t>(nodes.size());
        ASSERT_TRUE(eliminator.Init());
        EXPECT_EQ(finish(0, row.trunk) + finish(3, row.full), 0);
        for (const auto& [level, processes] : row.waiting) push(level, processes);
        EXPECT_EQ(finish(3, row.full), row.saved);
        std::string drops;
        for (auto node = nodes.begin() + first; node != nodes.end(); ++node)
            drops += node->bDropped ? node->pNode->szGuid + std::string(" ") : "";
        EXPECT_EQ(drops, row.drops);
    }
}

TEST_F(Eliminator, TakesALimitFromAMinuteToTenHours) {
    push(3, 7200);
    logged();
    for (const uint32_t limit : {0u, 59'999u, 36'000'001u, 0xffffffffu, 60'000u, 36'000'000u})
        eliminator.SetMaxDelay(limit);
    EXPECT_EQ(logged(), "I set max delay second to: 60000\nI set max delay second to: 36000000\n");
    EXPECT_EQ(finish(3, 5000), 0);
    EXPECT_EQ(finish(3, -1), 0);
    EXPECT_EQ(g_statistics.ioaTrunkTracePredict, 300u);
    EXPECT_EQ(g_statistics.ioaFullTracePredict, static_cast<uint64_t>(-1));
}

TEST_F(Eliminator, LeavesOtherEventsAndLevelsOutOfTheAccount) {
    Node odd[] = {{-1, 100}, {6, 100}, {3, 100, event_id::kov}};
    for (Node& node : odd) eliminator.Push(&node);
    EXPECT_EQ(finish(3, 1000) + finish(0, 1000), 0);
    logged();
    for (Node& node : odd) eliminator.Pop(&node);
    EXPECT_EQ(eliminator.UpdateCost(&odd[2], 9'000'000), 0);
    EXPECT_EQ(finish(3, 9, 0), 0);
    EXPECT_EQ(logged(), "E procees count in alarm is zero!\n");
}

TEST_F(Eliminator, ShowsItsCountsByLevelWhileItHasAMutex) {
    const std::string costs = "D skip behavior level: 2, trunk trace predict: 300ms, full trace precit: 5000ms\n";
    push(4, 7);
    logged();
    eliminator.Dump();
    std::string counts;
    for (int level = 0; level < 6; ++level)
        counts += "D level: " + std::to_string(level) + ", count: " + (level == 4 ? "7\n" : "0\n");
    EXPECT_EQ(logged(), costs + counts);
    eliminator.Uninit();
    eliminator.Dump();
    EXPECT_EQ(logged(), costs);
}

TEST_F(Eliminator, EndsTheProcessWhenASumOverflows) {
    for (int i = 0; i < 43; ++i) push(3, 10'000);
    EXPECT_DEATH(finish(3, 5000), "overflows");
    eliminator.Pop(&nodes.front());
    EXPECT_EQ(finish(3, 5000), 42 * 50'000'000);
}

TEST_F(Eliminator, ReadsTheHighestLevelOfATrunkTrace) {
    const char* missing = "W ini_file_get section : trace_setting , key : skip_behavior_level failed\n";
    const char* over = "W section : trace_setting , key : skip_behavior_level failed over the limit\n";
    const std::tuple<const char*, int, const char*> rows[] = {
        {"other=3", 2, missing},
        {"skip_behavior_level=0x5", 5, ""},
        {"skip_behavior_level=03", 3, ""},
        {"skip_behavior_level=some", 0, ""},
        {"skip_behavior_level=6", 2, over},
        {"skip_behavior_level=-1", 2, over},
        {"skip_behavior_level=4294967300", 4, ""},  // cut to 32 bits first
    };
    const auto& folder = zel_test::SettingsFolder::get();
    const std::string path = folder.path(kSettings), first = "I get @/../config/zeltrc.ini file path " + path + "\n";
    const auto last = [](int level) { return "I max skip behavior level: " + std::to_string(level) + "\n"; };
    for (const auto& [text, level, warning] : rows) {
        folder.write(kSettings, std::string("[trace_setting]\n") + text);
        EXPECT_TRUE(TraceEliminator().Init());
        EXPECT_EQ(logged(), first + warning + last(level)) << text;
    }
    zel_test::refused_ini = 1;
    EXPECT_TRUE(TraceEliminator().Init());
    EXPECT_EQ(logged(), first + "W file path " + path + " ini_file_load error\n" + last(2));
    std::filesystem::remove(path);
    EXPECT_TRUE(TraceEliminator().Init());
    EXPECT_EQ(logged(), first + "W file path " + path + " is not exist\n" + last(2));
    zel_test::refused_mutex = 1;
    EXPECT_FALSE(TraceEliminator().Init());
    EXPECT_EQ(logged(ZEL_LOG_ERROR), "E mutex_init failed\n");
}

}  // namespace
