// DNS hits and their cache, live configuration, reports, and the chain that the trace module adds.
#include "e2e/harness.h"
#include "standin/zelds/zelds_host.h"

using namespace e2e;

namespace {

class Roads : public Agent {};

TEST_F(Roads, DnsHitBecomesAReportAndATrace) {
    start();
    send(DnsHit{.query_name = "Bad.Example"});
    const Published report = expect_event(769);
    EXPECT_EQ(report.source, 1281u);
    vorn_retrace::vorn_trace_info message = report.message;
    EXPECT_EQ(message.threat().alert_guid(), report.guid);
    EXPECT_NE(message.threat().same_alert_key(), 0u);
    message.mutable_threat()->clear_alert_guid();
    message.mutable_threat()->clear_same_alert_key();
    EXPECT_EQ(difference(message, R"(
        agent_id: "A-1" trace_tags_exs { str_data: "IOC" }
        threat {
            alert_type: VORN_RISK_IOC risk_level: VORN_RISK_LEVEL_CRITICAL threat_score: 90 total_score: 90
            malicious_key: "Bad.Example" alert_new_time: 5000 alert_old_time: 5000 containerid: "cid" repository: "repo"
            container_init_pid: 42
            alert_rule { confidence: 100 alert_event { type: VORN_TRACE_DNS_QUERY op_time: 5000
                subject_process { process_id: 77 process_guid: "01234567-89ab-cdef-0123-456789a" process_createtime: 900
                    process_path: "/usr/bin/curl" process_commandline: "curl bad" }
                object_dns_query { dns_name: "bad.example" dns_status: 3 dns_results: "192.0.2.1" } } }
        })"),
              "");
    EXPECT_EQ(expect_event(770).bytes, report.bytes);
    expect_logs("receive one ioc alert, qury_name:bad.example, guid:" + report.guid + "|start handle ioc!");
    expect_figures({{"sentToMbCount", 0}, {"firstTraceTotalCount", 1}});

    send(DnsHit{.path = "/\x01"});  // no message can be made of it, but it is remembered
    expect_logs("GetThreatAlertInfo failed!|Invoke buf is null!|event invoke failed!");
    send(DnsHit{.path = "/\x01"});
    expect_logs("The event is in the hot cache.event:1281");
}

TEST_F(Roads, HotCacheTalliesRepeatsAndReportsThemWhenTheyLeave) {
    set("zelreshdl.ini", "cache", "cache_size=10\ndie_num=20");
    start();
    const auto hit = [&](const DnsHit& dns) {
        send(dns);
        settle();
    };
    const auto batch = [&] {  // the next one, among the traces
        Published event = expect_event(770);
        while (event.message.cmd() != vorn_retrace::TRACE_CMD_DUP_ALERT && !HasFailure()) event = expect_event(770);
        return event;
    };
    hit({.time = 100});
    const Published first = expect_event(769);
    for (const uint64_t time : {300, 200, 400}) hit({.domain = "BAD.example", .time = time, .path = "/USR/bin/curl"});
    EXPECT_EQ(count_events(769), 1u);
    EXPECT_EQ(count_log("The event is in the hot cache.event:1281"), 3u);
    for (uint32_t pid = 1; pid <= 8; ++pid) hit({.pid = pid});  // others, for the process takes part in the key
    for (uint32_t pid = 1; pid <= 2; ++pid) hit({.pid = pid, .time = 50});
    expect_figures({{"hotCacheHitCount", 5}});
    const DnsHit long_name{.pid = 9, .query_name = "a-name-of-more-than-20-characters"};
    hit(long_name);
    expect_logs("hot cache current size:10|hot cache queue:8, die out size:2");
    const Published shed = batch();  // the oldest two, the newer first
    EXPECT_EQ(std::tuple(shed.source, shed.guid, shed.message.has_threat()), std::tuple(1281u, "", false));
    ASSERT_EQ(shed.message.dup_alerts_size(), 2);
    const auto& old = shed.message.dup_alerts(1);
    EXPECT_EQ(std::tuple(old.alert_guid(), old.same_alert_key()),
              std::tuple(first.guid, first.message.threat().same_alert_key()));
    EXPECT_EQ(std::tuple(old.malicious_key(), old.dup_count(), old.first_hit_time(), old.recent_hit_time()),
              std::tuple("bad.example", 3, 200, 400));

    hit(long_name);
    advance(1h + 1s);
    const Published aged = batch();
    ASSERT_EQ(aged.message.dup_alerts_size(), 2);  // of the eight that die, those with a repeat
    EXPECT_EQ(aged.message.dup_alerts(0).malicious_key(),
              "a-name-of-more-than-" + aged.message.dup_alerts(0).alert_guid());
}

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
