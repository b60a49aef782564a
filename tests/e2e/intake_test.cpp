// What the plug-in does with events at its door: limits, ids that nobody handles, bytes that mean nothing; capture.
#include <filesystem>
#include <random>

#include "e2e/harness.h"

using namespace e2e;

namespace {

class Intake : public Agent {};

TEST_F(Intake, RefusesEventsBeyondTheLimit) {
    set("zelreshdl.ini", "config", "queue_max=50");
    start();
    hold_alarm_worker();
    for (int number = 1; number <= 51; ++number) send(Alert{.number = number});
    send(DnsHit{});
    send(Alert{.number = 53});
    expect_log("The queue reached the threshold. Event queue:51, trc queue:0, delay queue:0", 2);
    EXPECT_EQ(count_log("[work queue count : 51]"), 1u);
    EXPECT_EQ(configure(R"({"delay_time":"60000","queue_size":"-1"})"), 0);
    send(Alert{.number = 54});  // no limit any more
    hold_traces(false);
    expect_event(769, guid(54));
    expect_figures({{"eventQueueOverflowCount", 2}, {"recvAlarmCount", 55}, {"eventQueueTotalCount", 53}});
}

TEST_F(Intake, FullTraceQueueRefusesAndWaitingRetriesAreReported) {
    set("zelreshdl.ini", "config", "queue_max=50");
    answers(ZELTRC_CREATE, std::vector<Answer>(26, {ZEL_TRC_NOT_READY}));
    start();
    for (int number = 1; number <= 26; ++number) send(Alert{.number = number});
    expect_log("alert trace retry", 26);
    hold_traces(true);
    send(Alert{.number = 27});
    expect_logs(
        "zelreshdl PushQueue EDR 3.7.2.20 A-1: [info] The queue reached the busy threshold. Event queue:0, trc "
        "queue:0, delay queue:26");
    EXPECT_SOON(calls(ZELTRC_CREATE) == 27);
    for (uint32_t context = 1; context <= 51; ++context) EXPECT_EQ(file_trace(1, context), 0);
    send(Alert{.number = 28});
    expect_logs("The queue reached the threshold. Event queue:0, trc queue:51, delay queue:26");
    answers(ZELTRC_CREATE, {{0}});
    hold_traces(false);
    expect_callback(51);
}

TEST_F(Intake, IdsThatNobodyHandles) {
    start();
    send(534, "data");
    EXPECT_EQ(publish(1537, "data"), LUMMB_NOT_SUBSCRIBED);
    settle();  // with an event 2304
    expect_logs("get event:534|unknown event id : 534|Get event struct error!|ignore handle: 2304!");
    expect_figures({{"recvAlarmCount", 2}, {"eventQueueTotalCount", 1}});
}

TEST_F(Intake, AnyBytesAreSurvived) {
    start();
    std::mt19937 random(20240507);
    const std::string good = Alert{.type = 2, .rules = {Rule{}, Rule{}}, .process_set = {RawEvent{}}}.text();
    const uint32_t ids[] = {1536, 1538, 1540, 1541, 1542, 1543, 1544, 1793, 1794, 534};
    for (int round = 0; round < 400; ++round) {
        std::string bytes(random() % 300, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        if (round % 2 == 0) {  // or a document with some bytes changed, sometimes cut
            bytes = good.substr(0, round % 8 == 0 ? random() % good.size() : good.size());
            for (size_t change = random() % 4; change > 0 && !bytes.empty(); --change)
                bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        send(ids[random() % std::size(ids)], bytes);
        if (round % 40 == 0) settle();
    }
    settle();
    EXPECT_EQ(count_log(" given up: "), 0u);
    send(Alert{.number = 2, .rules = {{.id = "new"}}});
    expect_event(770, guid(2));
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
