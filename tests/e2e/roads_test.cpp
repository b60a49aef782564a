// Live configuration and the reports.
#include "e2e/harness.h"

using namespace e2e;

namespace {

class Roads : public Agent {};

TEST_F(Roads, LiveConfigurationTakesBothKeysOrNone) {
    start();
    const std::tuple<std::string, int, std::string> rows[] = {
        {"", -1, "invalid param"},
        {"{", -1, "on parser json"},
        {R"({"delay_time":70000,"queue_size":"60"})", -1, "delay_time is not a string"},
        {R"({"delay_time":"70000"})", -1, "delay_time is not a string"},  // of either key
        {R"({"delay_time":"70000","queue_size":60})", -1, "delay_time is not a string"},
        {R"({"delay_time":"59999","queue_size":"x"})", 0, "size: 39"},
        {R"({"delay_time":"0100000","queue_size":"0"})", 0, "set max delay second to: 100000"},
    };
    for (const auto& [document, result, log] : rows) {
        const size_t lines = count_log(log);
        EXPECT_EQ(configure(document), result) << document;
        EXPECT_EQ(count_log(log), lines + 1) << document;
    }
    EXPECT_EQ(count_log("set max delay second to:"), 1u);
}

class Reports : public Agent {
protected:
    // One trace that takes this long, and a bit more.
    void trace_of(std::chrono::seconds cost) {
        const uint64_t before = calls(ZELTRC_CREATE);
        hold_traces(true);
        send(Alert{.number = ++number_});
        EXPECT_SOON(calls(ZELTRC_CREATE) == before + 1);
        advance(cost);
        hold_traces(false);
        expect_event(770, guid(number_));
        settle();
    }
    // The costs of traces reach the next report, unless those that wait for it have the worse single trace.
    void collect_costs() { EXPECT_EQ(report("zelreshdl", 1).result, 0); }

    int number_ = 0;
};

TEST_F(Reports, CarryTheFiguresAndStartAgain) {
    start();
    trace_of(4s);
    trace_of(2s);
    collect_costs();
    expect_logs("Error: Buffer size is too small for the result.");
    EXPECT_EQ(report("zelreshdl", 0).result, 0);
    const Report full = report();
    EXPECT_EQ(full.result, 1);
    EXPECT_TRUE(full.text.starts_with(
        R"("BP_ZELRESHDL":{"summary": {"recvAlarmCount": 4, "sentToTrcCount": 2, "sentToMbCount": 2, )"
        R"("eventQueueOverflowCount": 0, "firstTraceTotalCount": 2, "eventQueueTotalCount": 4, )"
        R"("delayedTraceTotalCount": 0, "hotCacheHitCount": 0, "traceFailedCount": 0, "alertEventTotalCount": 2, )"
        R"("alertEventFilterCount": 0, "traceDroppedCount": 0, "ioaTrunkTracePredict": 300, "ioaFullTracePredict": 2)"))
        << full.text;
    EXPECT_NE(full.text.find(R"("details": {"avgCost": )"), std::string::npos) << full.text;
    EXPECT_EQ(full["traceCost"] / 1000, 6);
    EXPECT_EQ(full["avgCost"], full["traceCost"] / 2);
    EXPECT_EQ(full["maxCost"] / 1000, 4);
    EXPECT_EQ(std::tuple(full["successCount"], full["firstSuccessCount"]), std::tuple(2, 0));
    const Report empty = report();
    EXPECT_EQ(empty["recvAlarmCount"], 0);
    EXPECT_TRUE(empty.text.ends_with(R"("details": {}})")) << empty.text;
    const auto size = static_cast<uint32_t>(empty.text.size());
    EXPECT_EQ(report("zelreshdl", size).result, 0);
    EXPECT_EQ(report("zelreshdl", size + 1).result, 1);
    EXPECT_EQ(report("zeltrc", 0).result, 1);
}

TEST_F(Reports, KeepTheCostsOfThePeriodWithTheWorstTraceButForAStart) {
    start();
    trace_of(3s);
    collect_costs();
    trace_of(2s);
    collect_costs();
    const Report worst = report();
    EXPECT_EQ(std::tuple(worst["successCount"], worst["maxCost"] / 1000), std::tuple(1, 3));
    EXPECT_EQ(report()["maxCost"] / 1000, 2);  // which waited in the other record
    trace_of(2s);
    collect_costs();
    trace_of(1s);
    rests(trace_worker_sleeps);
    stop();
    start();
    const Report first = report();
    EXPECT_EQ(std::tuple(first["recvAlarmCount"], first["maxCost"]), std::tuple(0, -1)) << first.text;
    EXPECT_EQ(report()["maxCost"], -1);
}

}  // namespace
