// Alert documents and findings: from the bus, through the filters, to the first report and the memory checks.
#include "e2e/harness.h"

using namespace e2e;

namespace {

class Alerts : public Agent {};

const RawEvent kProcess{
    .type = 1,
    .pid = 11,
    .image = "/bin/sh",
    .keys = R"("ObjectPid":12,"ObjectTid":13,"ObjectImage":"/bin/ls","ObjectCmd":"ls","ObjectCreateTime":14,
        "ObjectUser":"bob","ObjectGuid":"g-2","DecodedObjectCmd":"","Highlight":["sh"],
        "PostOpr":[{"Type":1,"Name":["SubjectPid","ObjectPid"]}])",
    .op_time = 3000};
const RawEvent kConnect{
    .type = 14,
    .pid = 21,
    .keys = R"("DstPort":443,"SrcPort":5000,"DstIp":"192.0.2.1","Protocol":"tcp","SrcIp":"192.0.2.2")",
    .op_time = 2000};

TEST_F(Alerts, DocumentBecomesAFirstReportAndATrace) {
    start();
    send(Alert{.number = 1,
               .rules = {{.id = "R", .events = {kProcess}, .keys = R"("tags":["t1","t2"],"confidence":7)"},
                         {.id = "T", .status = "Trigger"}}});
    const Published report = expect_event(769);
    EXPECT_EQ(report.source, 1536u);
    EXPECT_EQ(report.guid, guid(1));
    EXPECT_EQ(report.message.agent_id() + ' ' + report.message.trace_tags_exs(0).str_data(), "A-1 t1");
    EXPECT_EQ(report.message.threat().alert_rule_size(), 1) << "but the one that only triggers";
    EXPECT_EQ(report.message.threat().alert_rule(0).alert_event(0).object_processcreate().process_path(), "/bin/ls");
    const Published trace = expect_event(770, guid(1));
    EXPECT_EQ(trace.source, 1536u);
    EXPECT_EQ(trace.bytes, report.bytes);  // the scripted module gives back what it gets
    EXPECT_EQ(count_events(2305), 0u);     // only alerts of type 2 are scanned
    expect_logs("get event:1536|[work queue count : 1]|start handle 1536!|host alert,trace");
}

TEST_F(Alerts, AreTracedOnlyOnTheHostAndOnce) {
    start();
    const Rule first{.id = "A", .events = {RawEvent{}, {.image = "/b"}}};
    const Rule second{.id = "B"};
    send(Alert{.number = 1, .rules = {first, second}});
    send(Alert{.number = 2, .rules = {second, {.id = "A", .events = {{.image = "/b"}, RawEvent{}, RawEvent{}}}}});
    send(Alert{.number = 3, .rules = {first}});
    send(Alert{.number = 4, .type = 6, .container = "abc"}, 1538);
    send(Alert{.number = 5, .type = 6, .container = ""}, 1538);
    send(Alert{.number = 6, .rules = {{.status = "Trigger"}}});
    settle();
    for (const auto& [number, error] : {std::pair{1, 0}, {2, 4}, {3, 0}, {4, 0}, {5, 0}})
        EXPECT_EQ(expect_event(769, guid(number)).message.err_code(), error) << number;
    EXPECT_EQ(count_events(769), 5u);
    for (const int number : {1, 3, 5}) expect_event(770, guid(number));
    EXPECT_EQ(calls(ZELTRC_CREATE), 3u);
    expect_logs("repeat alert event! guid: " + guid(2) + "|The alert has been repeated. guid:" + guid(2));
    expect_logs("container alert, not trace. guid:" + guid(2) + "|container alert, not trace. guid:" + guid(4));
    expect_logs("Trigger rule only, skip. guid:" + guid(6));
    expect_figures(
        {{"recvAlarmCount", 7}, {"sentToMbCount", 5}, {"alertEventTotalCount", 5}, {"alertEventFilterCount", 1}});
}

TEST_F(Alerts, BadDocumentsAreRefusedWithTheirLines) {
    start();
    std::string mistyped = Alert{}.text();
    send(1536, mistyped.replace(mistyped.find(R"("R-1")"), 5, "1"));
    send(Alert{.rules = {{.events = {{.image = "\\u0001"}}}}});
    settle();
    expect_logs("rule_id is not string.|GetJsonInfo failed!|SetSubjectInfo failed!|Get com protobuf failed!");
    EXPECT_EQ(count_events(769), 0u);
    send(Alert{.number = 2});
    expect_event(769, guid(2));
}

TEST_F(Alerts, ScenarioAsksForMemoryChecksBeforeTheReport) {
    start();
    send(Alert{.number = 1,
               .type = 2,
               .rules = {{.events = {kProcess, kProcess}, .keys = R"("confidence":7)"}},
               .process_set = {kConnect, {.type = 14, .pid = 11, .keys = kConnect.keys}}});
    expect_event(769);
    ASSERT_EQ(count_events(2305), 3u);
    const char* const container = "|repo|m|u|n|i|host|-|in|c|-|p";
    // Process, its creation, time of the event, confidence.
    const std::tuple<uint32_t, int64_t, int64_t, int32_t, std::string> checks[] = {
        {11, 900, 3000, 7, "/bin/sh"}, {12, 14, 3000, 7, "/bin/ls"}, {21, 900, 2000, 0, "/opt/tool"}};
    for (const auto& expected : checks) {
        const Published event = expect_event(2305);
        const ST_MEM_DETECT_INFO& check = event.check;
        const std::string path = event.texts.substr(0, event.texts.find('|'));
        EXPECT_EQ(std::tuple(+check.uPid, +check.llCreateTime, +check.llOpTime, +check.nConfidence, path), expected);
        EXPECT_EQ(std::tuple(+check.uContainerInitPid, +check.uPrivileged), std::tuple(99u, 1u));
        EXPECT_EQ(event.texts, path + container);
        expect_logs("invoke MEM_DETECT_EVENT: pid [" + std::to_string(check.uPid) + "], path [" + path +
                    "], confidence [" + std::to_string(check.nConfidence) + "]");
    }
    EXPECT_EQ(count_log("Type is not supported.14"), 2u);
}

// The alarm worker's clock stands still, so that ages are exact. Each alert has a process set of one process, which is
// checked while one of its rules is within its limit.
class BusyRules : public Agent {
protected:
    void start_with(const std::string& settings) {
        set("zelreshdl.ini", "config", settings);
        stop_alarm_workers_clock();
        start();
    }
    // Whether an alert of these rules opened its process set.
    bool opens(std::vector<Rule> rules) {
        const size_t before = count_events(2305);
        send(Alert{.number = ++number_, .type = 2, .rules = std::move(rules), .process_set = {kConnect}});
        settle();
        return count_events(2305) == before + 1;
    }
    bool opens(const std::string& rule) { return opens(std::vector{Rule{.id = rule}}); }

    int number_ = 0;
};

TEST_F(BusyRules, AreClosedAboveTheLimitButForTheirOwnEvents) {
    start_with("disable_scan_scenario_limit=2");
    const char* const line = "ioa rule match times out of limit, skip scenario scan";
    EXPECT_TRUE(opens("busy"));
    EXPECT_TRUE(opens("busy"));
    EXPECT_EQ(count_log(line), 0u);
    EXPECT_FALSE(opens("busy"));
    EXPECT_EQ(count_log(line), 1u);
    EXPECT_TRUE(opens({{.id = "busy"}, {.id = "quiet"}}));
    EXPECT_FALSE(opens(std::vector<Rule>()));
    EXPECT_EQ(count_log(line), 2u);
    const size_t before = count_events(2305);
    EXPECT_FALSE(opens({{.id = "busy", .events = {kProcess, kProcess}}}));
    EXPECT_EQ(count_events(2305), before + 2);  // subject and object of its own event
}

TEST_F(BusyRules, AreClosedForAMatchOfExactlyAnHourAgo) {
    start_with("disable_scan_scenario_limit=2");
    for (int match = 1; match <= 3; ++match) opens("busy");
    advance(1h);
    EXPECT_FALSE(opens("busy"));
    advance(1ms);
    EXPECT_TRUE(opens("busy"));  // the match of a millisecond ago and this one are left
}

TEST_F(BusyRules, AreForgottenBeyondTheNumberOfRememberedMatches) {
    start_with("disable_scan_scenario_limit=2\nioa_match_queue_size=3");
    EXPECT_TRUE(opens("busy"));
    EXPECT_TRUE(opens("busy"));
    EXPECT_FALSE(opens("busy"));  // the third is remembered still
    EXPECT_TRUE(opens("quiet"));
    EXPECT_TRUE(opens("busy"));  // two of the last three
}

TEST_F(BusyRules, AreNeverClosedWhenNoMatchIsRemembered) {
    start_with("disable_scan_scenario_limit=0\nioa_match_queue_size=0");
    EXPECT_TRUE(opens("busy"));
    EXPECT_TRUE(opens("busy"));
}

TEST_F(Alerts, BehaviourRulesAloneAreFilteredFromTheShareOfTheQueueOn) {
    set("zelreshdl.ini", "config", "queue_max=50\ntrace_val=4");  // two waiting retries
    answers(ZELTRC_CREATE, {{ZEL_TRC_NOT_READY}});
    start();
    const Rule xdr{.id = "xdr-IOA-1"};
    const std::string line = "The alarm has been filtered.[S-1], guid:";
    for (const int number : {1, 2}) {
        send(Alert{.number = number, .type = 2, .rules = {xdr, {.id = "XDR-IOA-" + std::to_string(number)}}});
        expect_logs("alert trace retry, guid:" + guid(number));
    }
    send(Alert{.number = 3, .type = 2, .rules = {xdr}});
    send(Alert{.number = 4, .type = 2, .rules = {xdr, {.id = "XDR-IO"}}});
    send(Alert{.number = 5, .type = 3, .rules = {xdr}});
    settle();
    expect_logs(line + guid(3));
    EXPECT_EQ(count_log(line), 1u);
    EXPECT_EQ(count_events(769), 4u);
}

TEST_F(Alerts, FindingsGoOutWithTheirCommand) {
    start();
    const struct {
        uint32_t in;
        const char* data;
        uint32_t out;
        int cmd;
        const char* log;
    } rows[] = {
        {1540, "{1}", 769, vorn_retrace::TRACE_CMD_PORTSCAN, "event_id:1540, data:\r\n {1}."},
        {1542, "", 769, vorn_retrace::TRACE_CMD_ABNORMAL_LOGIN, "event_id:1542, data:\r\n ."},
        {1543, "\x12\x01t", 771, vorn_retrace::TRACE_CMD_CREDIBLE_EVENT, "event_id:1543, data_size:3."},
        {1544, "\xff", 769, vorn_retrace::TRACE_CMD_EVENT_DETECT, "param is error!"},
    };
    for (const auto& [in, data, out, cmd, log] : rows) {
        send(in, data);
        const Published event = expect_event(out);
        EXPECT_EQ(std::tuple(event.source, event.guid.size(), event.message.cmd()), std::tuple(in, 36u, cmd));
        expect_logs(log);
    }
    EXPECT_EQ(count_log("Unknown event!"), 2u);
    expect_figures({{"sentToMbCount", 0}});
}

}  // namespace
