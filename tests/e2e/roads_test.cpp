// Live configuration, the reports, and the chain that the trace module adds.
#include "e2e/harness.h"
#include "standin/zelds/zelds_host.h"

using namespace e2e;

namespace {

class Roads : public Agent {};

TEST_F(Roads, LiveConfigurationTakesBothKeysOrNone) {
    start();
    const struct {
        int line;
        const char* document;
        int result;
        const char* log;
    } rows[] = {
        {__LINE__, "", -1, "invalid param"},
        {__LINE__, "{", -1, "on parser json"},
        {__LINE__, R"({"delay_time":70000,"queue_size":"60"})", -1, "delay_time is not a string"},
        {__LINE__, R"({"delay_time":"70000"})", -1, "delay_time is not a string"},
        {__LINE__, R"({"delay_time":"70000","queue_size":60})", -1, "delay_time is not a string"},
        {__LINE__, R"({"delay_time":"59999","queue_size":"0"})", 0, "data:{\"delay_time\":\"59999\""},
        {__LINE__, R"({"delay_time":"36000001","queue_size":"x"})", 0, "size: 42"},
        {__LINE__, R"({"delay_time":"36000000","queue_size":"10"})", 0, "set max delay second to: 36000000"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const size_t before = count_log(row.log);
        EXPECT_EQ(configure(row.document), row.result);
        EXPECT_EQ(count_log(row.log), before + 1);
    }
    EXPECT_EQ(count_log("set max delay second to:"), 1u);
    hold_alarm_worker();
    for (int number = 1; number <= 12; ++number) send(Alert{.number = number});
    expect_logs("The queue reached the threshold. Event queue:11, trc queue:0, delay queue:0");
    hold_traces(false);
}

TEST_F(Roads, ReportsCarryTheFiguresAndStartAgain) {
    start();
    hold_traces(true);
    send(Alert{});
    EXPECT_SOON(calls(ZELTRC_CREATE) == 1);
    advance(2s);
    hold_traces(false);
    expect_event(770);
    settle();
    const Report refused = report("zelreshdl", 100);
    EXPECT_EQ(std::tuple(refused.result, refused.text), std::tuple(0, ""));
    expect_logs("Error: Buffer size is too small for the result.");
    EXPECT_EQ(report("zelreshdl", 0).result, 0);
    const Report full = report();
    EXPECT_EQ(full.result, 1);
    EXPECT_TRUE(full.text.starts_with(
        R"("BP_ZELRESHDL":{"summary": {"recvAlarmCount": 2, "sentToTrcCount": 1, "sentToMbCount": 1, )"
        R"("eventQueueOverflowCount": 0, "firstTraceTotalCount": 1, "eventQueueTotalCount": 2, )"
        R"("delayedTraceTotalCount": 0, "hotCacheHitCount": 0, "traceFailedCount": 0, "alertEventTotalCount": 1, )"
        R"("alertEventFilterCount": 0, "traceDroppedCount": 0, "ioaTrunkTracePredict": 300, "ioaFullTracePredict": 2)"))
        << full.text;
    EXPECT_NE(full.text.find(R"("details": {"avgCost": )"), std::string::npos) << full.text;
    EXPECT_GE(full["maxCost"], 2000);
    EXPECT_EQ(full["traceCost"], full["maxCost"]);
    const Report empty = report();
    EXPECT_EQ(empty["recvAlarmCount"], 0);
    EXPECT_TRUE(empty.text.ends_with(R"("details": {}})")) << empty.text;
    const auto size = static_cast<uint32_t>(empty.text.size());
    EXPECT_EQ(report("zelreshdl", size).result, 0);
    EXPECT_EQ(report("zelreshdl", size + 1).result, 1);
    EXPECT_EQ(report("zeltrc", 0).result, 1);
}

// With the stand-in of the trace module instead of the scripted one.
TEST_F(Roads, TraceModuleAddsTheChain) {
    replace("reshdl/lib/libzeltrc.so", "reshdl/lib/libzeltrc.so");
    set("zeltrc.ini", "standin", "not_ready_times=1");
    start();
    send(Alert{});
    expect_logs("alert trace retry, guid:" + guid(1));
    advance(15s);
    const Published trace = expect_event(770);
    EXPECT_EQ(trace.message.threat().alert_guid(), guid(1));
    EXPECT_EQ(trace.message.trace_event().edge_list_size(), 1);
    using GetCounts = std::remove_pointer_t<zeltrc_get_counts_t>;
    auto* const get_counts = function<GetCounts>("reshdl/lib/libzelcount.so", "zeltrc_get_counts");
    zeltrc_counts counts{};
    EXPECT_SOON((get_counts(&counts), counts.outstanding == 0));
    EXPECT_EQ(std::tuple(counts.foreign_releases, counts.null_releases), std::tuple(0u, 1u));
    zelds_counts store{};
    function<std::remove_pointer_t<zelds_get_counts_t>>("reshdl/lib/libzelcount.so", "zelds_get_counts")(&store);
    EXPECT_EQ(store.updates, 1u);  // for the retry
}

}  // namespace
