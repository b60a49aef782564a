// What the plug-in does with events at its door: limits, ids that nobody handles, bytes that mean nothing; capture.
#include <filesystem>

#include "e2e/harness.h"

using namespace e2e;

namespace {

class Intake : public Agent {};

TEST_F(Intake, RefusesEventsBeyondTheLiveLimitWhichIsADecimalNumberAbove0) {
    start();
    hold_alarm_worker();
    const std::tuple<const char*, int, size_t> rows[] = {
        // limit, events sent, refused so far
        {"0", 2, 0},     // the limit stays at 100
        {"010", 10, 1},  // a queue of 11 is beyond 10
        {"0x50", 1, 2},  // reads as 0
        {"-1", 1, 2},    // no limit any more
    };
    for (const auto& [limit, sent, refused] : rows) {
        EXPECT_EQ(configure(R"({"delay_time":"0","queue_size":")" + std::string(limit) + "\"}"), 0);
        for (int i = 0; i < sent; ++i) send(2304, "");
        bus_rests();
        EXPECT_EQ(count_log("The queue reached the threshold. Event queue:11, trc queue:0, delay queue:0"), refused);
    }
    expect_figures({{"eventQueueOverflowCount", 2}, {"recvAlarmCount", 15}, {"eventQueueTotalCount", 13}});
    hold_traces(false);
}

TEST_F(Intake, FullTraceQueueAndFullDelayQueueRefuse) {
    answers(ZELTRC_CREATE, {{ZEL_TRC_NOT_READY}, {ZEL_TRC_NOT_READY}, {0}});
    start();
    EXPECT_EQ(configure(R"({"delay_time":"0","queue_size":"1"})"), 0);
    for (const int number : {1, 2}) {
        send(Alert{.number = number});
        expect_log("alert trace retry", static_cast<size_t>(number));
    }
    send(Alert{.number = 3});
    expect_logs("The queue reached the threshold. Event queue:0, trc queue:0, delay queue:2");
    hold_traces(true);
    for (const uint32_t context : {1u, 2u, 3u}) {
        EXPECT_EQ(file_trace(1, context), 0);
        EXPECT_SOON(calls(ZELTRC_CREATE) == 3);
    }
    EXPECT_EQ(configure(R"({"delay_time":"0","queue_size":"2"})"), 0);
    send(2304, "");
    bus_rests();
    EXPECT_EQ(count_log("The queue reached the threshold."), 1u);  // two in each queue
    EXPECT_EQ(file_trace(1, 4), 0);
    rests(alarm_worker_sleeps);
    send(2304, "");
    expect_logs("The queue reached the threshold. Event queue:0, trc queue:3, delay queue:2");
    hold_traces(false);
    expect_callback(4);
}

struct TextsRow {
    const char *name, *version, *agent_id;  // null: no file, no agent id
    std::string shown;
};
class BusyReport : public Agent, public testing::WithParamInterface<TextsRow> {};

TEST_P(BusyReport, ComesAboveHalfOfTheLimitWithVersionAndAgentIdCutTo15Characters) {
    const auto& [name, version, agent_id, shown] = GetParam();
    replace("config/agent_cfg.json");
    if (version != nullptr)
        write("config/agent_cfg.json", R"({"version":{"components":")" + std::string(version) + "\"}}");
    agent_id != nullptr ? setenv("agentid", agent_id, 1) : unsetenv("agentid");
    answers(ZELTRC_CREATE, {{ZEL_TRC_NOT_READY}});
    start();
    EXPECT_EQ(configure(R"({"delay_time":"0","queue_size":"2"})"), 0);
    const std::string line = "zelreshdl PushQueue EDR " + shown +
                             ": [info] The queue reached the busy threshold. Event queue:0, trc queue:0, delay queue:2";
    for (const int number : {1, 2}) {
        EXPECT_EQ(count_log("busy threshold"), 0u);
        send(Alert{.number = number});
        expect_logs("alert trace retry, guid:" + guid(number));
        settle();
    }
    EXPECT_EQ(count_log(line), 1u);
}

constexpr const char* k32Digits = "12345678901234567890123456789012";
const TextsRow kTextsRows[] = {
    {"Missing", nullptr, nullptr, "3.7.2.20 0000000000"},
    {"Of15", "1.2.3456789abcd", "agent-789abcdef", "1.2.3456789abcd agent-789abcdef"},
    {"Of32", k32Digits, k32Digits, "123456789012345 123456789012345"},
};
INSTANTIATE_TEST_SUITE_P(Table, BusyReport, testing::ValuesIn(kTextsRows), row_name);

TEST_F(Intake, TakesPayloadsWithoutDataOfSize0AndPassesOverIdsThatNobodyHandles) {
    start();
    send(534, "data");
    EXPECT_EQ(publish(1537, "data"), LUMMB_NOT_SUBSCRIBED);
    expect_logs("get event:534|unknown event id : 534|Get event struct error!");
    const auto publish_null = [](uint32_t id, uint64_t size) { EXPECT_EQ(bus().publish(id, nullptr, size), LUMMB_OK); };
    publish_null(1541, 0);
    EXPECT_EQ(expect_event(769).message.cmd(), vorn_retrace::TRACE_CMD_BRUTEFORCE);
    publish_null(1536, 0);
    expect_logs("GetJsonInfo failed!");
    for (const uint32_t id : {1536u, 1541u}) publish_null(id, 1);
    expect_log("Get event struct error!", 3);
    EXPECT_EQ(count_log("(char*)calloc(uSize, sizeof(char)) failed!"), 2u);
    settle();  // with an event 2304
    expect_figures({{"recvAlarmCount", 6}, {"eventQueueTotalCount", 3}});
}

TEST_F(Intake, MessagesAreCapturedInARingWhileTheFlagFileStands) {
    start();
    const auto file = [&](const std::string& name) { return read("kq-agent/" + name); };
    const auto trace_one = [&](int number, uint32_t id) {
        send(Alert{.number = number}, id);
        expect_event(769, guid(number));
        return expect_event(770, guid(number)).bytes;
    };
    trace_one(1, 1536);
    EXPECT_EQ(count_log("reshdlproto_flag not exist"), 2u);
    EXPECT_TRUE(std::filesystem::is_empty(path("kq-agent")));
    write("kq-agent/reshdlproto_flag", "");
    const std::string first = trace_one(2, 1536);
    const std::string first_size = std::to_string(first.size()) + "\n";
    EXPECT_EQ(std::tuple(file("ioa_alarm.data.1"), file("ioa_trc.data.2")), std::tuple(first, first));
    EXPECT_EQ(file("ioa_trc.data.2.size"), first_size);
    trace_one(3, 1538);  // whose trace is not captured
    send(1793, "");
    expect_event(770);
    EXPECT_EQ(file("kov_alarm.data.4") + file("kov_alarm.data.4.size") + file("kov_trc.data.5.size"), "0\n0\n");
    send(DnsHit{});
    const std::string hit = expect_event(770).bytes;
    EXPECT_EQ(std::tuple(file("ioc_alarm.data.6"), file("ioc_trc.data.7")), std::tuple(hit, hit));
    for (int number = 4; number < 11; ++number) trace_one(number, 1536);  // up to number 21
    const std::string last = trace_one(1000000, 1536);                    // numbers 1 and 2 again
    EXPECT_EQ(file("ioa_alarm.data.1"), last);
    EXPECT_EQ(file("ioa_alarm.data.1.size"), first_size + std::to_string(last.size()) + "\n");
    EXPECT_NE(file("ioa_trc.data.21"), "");
    std::filesystem::remove(path("kq-agent/reshdlproto_flag"));
    trace_one(12, 1536);
    EXPECT_EQ(count_log("reshdlproto_flag not exist"), 4u);
    EXPECT_EQ(file("ioa_alarm.data.22") + file("ioa_trc.data.4"), "");
}

}  // namespace
