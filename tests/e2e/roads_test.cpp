// DNS hits and their cache, live configuration, reports, and starts without the optional libraries.
#include <sys/stat.h>

#include "e2e/harness.h"

using namespace e2e;

namespace {

class Roads : public Agent {};

TEST_F(Roads, DnsHitBecomesAReportAndATrace) {
    start();
    publish(DnsHit{.query_name = "Bad.Example"});
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
            alert_rule {
                confidence: 100
                alert_event {
                    type: VORN_TRACE_DNS_QUERY op_time: 5000
                    subject_process {
                        process_id: 77 process_guid: "01234567-89ab-cdef-0123-456789a" process_path: "/usr/bin/curl"
                        process_createtime: 900 process_commandline: "curl bad"
                    }
                    object_dns_query { dns_name: "bad.example" dns_status: 3 dns_results: "192.0.2.1" }
                }
            }
        })"),
              "");
    EXPECT_EQ(expect_event(770).bytes, report.bytes);
    expect_logs({"receive one ioc alert, qury_name:bad.example, guid:" + report.guid, "start handle ioc!"});
    EXPECT_EQ(this->report()["sentToMbCount"], 0);

    publish(DnsHit{.path = "/\x01"});  // no message can be made of it, but it is remembered
    expect_logs({"GetThreatAlertInfo failed!", "Invoke buf is null!", "event invoke failed!"});
    publish(DnsHit{.path = "/\x01"});
    expect_log("The event is in the hot cache.event:1281");
}

TEST_F(Roads, HotCacheTalliesRepeatsAndShedsWhenFull) {
    set("zelreshdl:cache:cache_size", "10");
    set("zelreshdl:cache:die_num", "20");
    start();
    const auto hit = [&](const DnsHit& dns) {
        publish(dns);
        settle();
    };
    hit({.time = 100});
    const Published first = expect_event(769);
    for (const uint64_t time : {300, 200, 400}) hit({.domain = "BAD.example", .time = time, .path = "/USR/bin/curl"});
    EXPECT_EQ(count_events(769), 1u);
    EXPECT_EQ(count_log("The event is in the hot cache.event:1281"), 3u);
    for (uint32_t pid = 1; pid <= 8; ++pid) hit({.pid = pid});  // others, for the process takes part in the key
    for (uint32_t pid = 1; pid <= 2; ++pid) hit({.pid = pid, .time = 50});
    EXPECT_EQ(report()["hotCacheHitCount"], 5);
    hit({.pid = 9, .query_name = "a-name-of-more-than-20-characters"});
    expect_logs({"hot cache current size:10", "hot cache queue:8, die out size:2"});
    // The oldest two, newest first.
    const auto batch = [&] {
        for (;;) {
            Published event = expect_event(770);
            if (event.message.cmd() == vorn_retrace::TRACE_CMD_DUP_ALERT || HasFailure()) return event;
        }
    };
    Published shed = batch();
    EXPECT_EQ(std::tuple(shed.source, shed.guid), std::tuple(1281u, ""));
    ASSERT_EQ(shed.message.dup_alerts_size(), 2);
    const auto& old = shed.message.dup_alerts(1);
    EXPECT_EQ(std::tuple(old.alert_guid(), old.malicious_key(), old.dup_count(), old.first_hit_time(),
                         old.recent_hit_time(), old.same_alert_key()),
              std::tuple(first.guid, "bad.example", 3, 200, 400, first.message.threat().same_alert_key()));
    EXPECT_FALSE(shed.message.has_threat());
    hit({.time = 100});  // a first sighting again
    EXPECT_EQ(report()["hotCacheHitCount"], 0);

    hit({.pid = 9, .query_name = "a-name-of-more-than-20-characters"});
    advance(1h + 1s);
    const Published aged = batch();
    ASSERT_EQ(aged.message.dup_alerts_size(), 2);  // of the nine that die, those with a repeat
    EXPECT_EQ(aged.message.dup_alerts(0).malicious_key().substr(0, 21),
              "a-name-of-more-than-" + aged.message.dup_alerts(0).alert_guid().substr(0, 1));
    advance(1h + 1s);
    settle();
    hit({.pid = 500});
    advance(1h + 1s);
    EXPECT_EQ(batch().message.dup_alerts_size(), 0);  // an empty batch is sent all the same
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
        {__LINE__, "[]", -1, "delay_time is not a string"},
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
    // A limit of 10, below what the settings file may say.
    hold_traces(true);
    EXPECT_EQ(publish(1793, "x"), LUMMB_OK);
    EXPECT_SOON(calls(ZELTRC_COMPLETION) == 1);
    for (int number = 1; number <= 12; ++number) publish(Alert{.number = number});
    expect_log("The queue reached the threshold. Event queue:11, trc queue:0, delay queue:0");
    hold_traces(false);
    expect_event(769, guid(11));
}

TEST_F(Roads, ReportsCarryTheFiguresAndStartAgain) {
    write("config/agent_cfg.json", R"({"version":{"components":"9.8.7.6543210-too-long"}})");
    start();
    hold_traces(true);
    publish(Alert{});
    EXPECT_SOON(calls(ZELTRC_CREATE) == 1);
    advance(2s);
    hold_traces(false);
    expect_event(770);
    settle();
    const Report refused = report("zelreshdl", 100);
    EXPECT_EQ(refused.result, 0);
    EXPECT_EQ(refused.text, "");
    expect_log("Error: Buffer size is too small for the result.");
    EXPECT_EQ(report("zelreshdl", 0).result, 0);
    const Report full = report();
    EXPECT_EQ(full.result, 1);
    EXPECT_TRUE(
        full.text.starts_with("\"BP_ZELRESHDL\":{\"summary\": {\"recvAlarmCount\": 2, \"sentToTrcCount\": 1, "
                              "\"sentToMbCount\": 1, \"eventQueueOverflowCount\": 0, "
                              "\"firstTraceTotalCount\": 1, \"eventQueueTotalCount\": 2, "
                              "\"delayedTraceTotalCount\": 0, \"hotCacheHitCount\": 0, "
                              "\"traceFailedCount\": 0, \"alertEventTotalCount\": 1, "))
        << full.text;
    EXPECT_TRUE(full.text.find("\"details\": {\"avgCost\": ") != std::string::npos) << full.text;
    EXPECT_GE(full["maxCost"], 2000);
    EXPECT_EQ(full["traceCost"], full["maxCost"]);
    EXPECT_GE(full["ioaFullTracePredict"], 2000);
    const Report empty = report();
    EXPECT_EQ(empty["recvAlarmCount"], 0);
    EXPECT_TRUE(empty.text.ends_with("\"details\": {}}")) << empty.text;
    EXPECT_EQ(report("zeltrc").result, 1);
    const uint32_t size = static_cast<uint32_t>(report().text.size());
    EXPECT_EQ(report("zelreshdl", size).result, 0);
    EXPECT_EQ(report("zelreshdl", size + 1).result, 1);
}

struct MissingRow {
    const char* name;
    std::vector<const char*> libraries;
    std::vector<std::string> logs;
};
class WithoutLibrary : public Agent, public testing::WithParamInterface<MissingRow> {};

TEST_P(WithoutLibrary, StartsWorksAndStops) {
    for (const char* library : GetParam().libraries) replace(library);
    start();
    for (const auto& text : GetParam().logs) EXPECT_EQ(count_log(text), 1u) << text;
    EXPECT_EQ(count_log("[ZEL_BPMGR_REGISTER] module_name: % error."), count_log("dll open zel_bpmgr failed") * 2);
    EXPECT_EQ(count_log("ZelbpmgrApi init successful."), 1u);
    publish(Alert{});
    expect_event(770);
    settle();
}

constexpr const char* kManager = "reshdl/lib/libzelbpmgr.so";
constexpr const char* kSdk = "lib/libzel_bpsdk.so";
constexpr const char* kIpc = "reshdl/lib/libodaipc.so";
constexpr const char* kAdapter = "reshdl/lib/libzellxadapter.so";
const std::vector<std::string> kNoManager = {"dll open zel_bpmgr failed, errcode:0x84ce0015",
                                             "ZelbpmgrApi init failed, m_register_report_cb get error."};
const std::vector<std::string> kNoSdk = {"dll open zel_bpsdk failed, errcode:0x84ce0015"};
INSTANTIATE_TEST_SUITE_P(Table, WithoutLibrary,
                         testing::Values(MissingRow{"Manager", {kManager}, kNoManager},
                                         MissingRow{"Sdk", {kSdk}, kNoSdk}, MissingRow{"Ipc", {kIpc}, {}},
                                         MissingRow{"Adapter", {kAdapter}, {}},
                                         MissingRow{"All", {kManager, kSdk, kIpc, kAdapter}, kNoManager}),
                         row_name);

// With the stand-in of the trace module instead of the scripted one.
TEST_F(Roads, TraceModuleAddsTheChain) {
    replace("reshdl/lib/libzeltrc.so", "reshdl/lib/libzeltrc.so");
    set("zeltrc:standin:not_ready_times", "1");
    start();
    publish(Alert{});
    expect_event(769);
    expect_log("alert trace retry, guid:" + guid(1));
    advance(15s);
    const Published trace = expect_event(770);
    EXPECT_EQ(trace.message.threat().alert_guid(), guid(1));
    EXPECT_EQ(trace.message.trace_event().edge_list_size(), 1);
    using GetCounts = std::remove_pointer_t<zeltrc_get_counts_t>;
    const auto get_counts = function<GetCounts>("reshdl/lib/libzelcount.so", "zeltrc_get_counts");
    zeltrc_counts counts{};
    EXPECT_SOON((get_counts(&counts), counts.outstanding == 0));
    EXPECT_EQ(std::tuple(counts.foreign_releases, counts.null_releases), std::tuple(0u, 1u));
}

}  // namespace
