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

TEST_F(Alerts, WithATextThatNoMessageMayCarryAreNotSent) {
    start();
    send(Alert{.rules = {{.events = {{.image = "\\u0001"}}}}});
    settle();
    expect_logs("SetSubjectInfo failed!|Get com protobuf failed!");
    EXPECT_EQ(count_events(769), 0u);
}

TEST_F(Alerts, ScenarioAsksForMemoryChecksBeforeTheReport) {
    start();
    send(Alert{.number = 2, .type = 2, .process_set = {kConnect}}, 1538);  // asks for none
    send(Alert{.number = 1,
               .type = 2,
               .rules = {{.status = "Trigger", .events = {kProcess, kProcess}, .keys = R"("confidence":7)"}, {}},
               .process_set = {kConnect, {.type = 14, .pid = 11, .keys = kConnect.keys}}});
    expect_event(769, guid(1));
    ASSERT_EQ(count_events(2305), 3u);
    for (const char* check : {"pid [11], path [/bin/sh], confidence [7]", "pid [12], path [/bin/ls], confidence [7]",
                              "pid [21], path [/opt/tool], confidence [0]"})
        expect_logs(std::string("invoke MEM_DETECT_EVENT: ") + check);
    // Process, its creation, time of the event, confidence, the container's process and privilege.
    for (const char* record :
         {"11 900 3000 7 99 1 /bin/sh", "12 14 3000 7 99 1 /bin/ls", "21 900 2000 0 99 1 /opt/tool"})
        EXPECT_EQ(expect_event(2305).bytes, std::string(record) + "|repo|m|u|n|i|host|-|in|c|-|p");
    EXPECT_EQ(count_log("Type is not supported.14"), 2u);
}

// The process set of an alert is one process, which is checked while one of the alert's rules is within its limit.
TEST_F(Alerts, OfBusyRulesAloneHaveNoProcessSetChecked) {
    set("zelreshdl.ini", "config", "disable_scan_scenario_limit=2\nioa_match_queue_size=4");
    start();
    const Rule busy{.id = "busy"}, quiet{.id = "quiet"}, with_events{.id = "busy", .events = {kProcess, kProcess}};
    // An own event has a subject and an object. Two of the four matches remembered are the quiet rule's in the last row
    // but two. The last row comes an hour later.
    const std::pair<std::vector<Rule>, size_t> checks_of[] = {
        {{busy}, 1},        {{busy}, 1},  {{busy}, 0}, {{quiet, busy}, 1}, {{busy, quiet}, 1}, {{}, 0},
        {{with_events}, 2}, {{quiet}, 1}, {{busy}, 1}, {{busy}, 0},        {{busy}, 1}};
    int number = 0;
    size_t closed = 0;
    for (const auto& [rules, checks] : checks_of) {
        const size_t before = count_events(2305);
        if (number == 10) advance(1h + 1s);
        send(Alert{.number = ++number, .type = 2, .rules = rules, .process_set = {kConnect}});
        settle();
        EXPECT_EQ(count_events(2305) - before, checks) << number;
        closed += checks == 1 ? 0 : 1;
        EXPECT_EQ(count_log("ioa rule match times out of limit, skip scenario scan"), closed) << number;
    }
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
    const std::tuple<uint32_t, const char*, uint32_t, int, const char*> rows[] = {
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
