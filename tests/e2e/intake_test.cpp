// What the plug-in does with events at its door: limits, ids that nobody handles, bytes that mean nothing; capture.
#include <filesystem>
#include <random>

#include "e2e/harness.h"

using namespace e2e;

namespace {

class Intake : public Agent {};

TEST_F(Intake, RefusesEventsBeyondTheLimit) {
    set("zelreshdl:config:queue_max", "50");
    start();
    hold_traces(true);
    EXPECT_EQ(publish(1793, "x"), LUMMB_OK);  // keeps the alarm worker
    EXPECT_SOON(calls(ZELTRC_COMPLETION) == 1);
    for (int number = 1; number <= 51; ++number) publish(Alert{.number = number});
    publish(DnsHit{});
    publish(Alert{.number = 53});
    EXPECT_SOON(bus().waiting == 0);
    expect_log("The queue reached the threshold. Event queue:51, trc queue:0, delay queue:0", 2);
    EXPECT_EQ(count_log("[work queue count : 51]"), 1u);
    EXPECT_EQ(configure(R"({"delay_time":"60000","queue_size":"-1"})"), 0);
    publish(Alert{.number = 54});  // no limit any more
    hold_traces(false);
    expect_event(769, guid(54));
    const Report report = this->report();
    for (const auto& [key, value] :
         {std::pair{"eventQueueOverflowCount", 2}, {"recvAlarmCount", 55}, {"eventQueueTotalCount", 53}})
        EXPECT_EQ(report[key], value) << key;
}

TEST_F(Intake, AFullTraceQueueRefusesToo) {
    set("zelreshdl:config:queue_max", "50");
    answers(ZELTRC_CREATE, std::vector<Answer>(26, {ZEL_TRC_NOT_READY}));
    start();
    for (int number = 1; number <= 26; ++number) publish(Alert{.number = number});
    expect_log("alert trace retry", 26);
    hold_traces(true);
    answers(ZELTRC_CREATE, {{0}});
    // One more than half of the limit waits for its retry, which is reported with each event and refuses nothing.
    publish(Alert{.number = 27});
    settle();
    expect_log(
        "zelreshdl PushQueue EDR 3.7.2.20 A-1: [info] The queue reached the busy threshold. Event queue:0, trc "
        "queue:0, delay queue:26");
    EXPECT_SOON(calls(ZELTRC_CREATE) == 27);
    for (uint32_t context = 1; context <= 51; ++context) EXPECT_EQ(file_trace(1, context), 0);
    publish(Alert{.number = 28});
    expect_log("The queue reached the threshold. Event queue:0, trc queue:51, delay queue:26");
    hold_traces(false);
    EXPECT_EQ(expect_callback(51).code, 8);
}

TEST_F(Intake, IdsThatNobodyHandles) {
    start();
    EXPECT_EQ(publish(534, "data"), LUMMB_OK);
    EXPECT_EQ(publish(1537, "data"), LUMMB_NOT_SUBSCRIBED);
    settle();  // with an event 2304
    expect_logs({"get event:534", "unknown event id : 534", "Get event struct error!", "ignore handle: 2304!"});
    const Report report = this->report();
    EXPECT_EQ(report["recvAlarmCount"], 2);
    EXPECT_EQ(report["eventQueueTotalCount"], 1);
}

TEST_F(Intake, AnyBytesAreSurvived) {
    start();
    std::mt19937 random(20240507);
    const std::string good = Alert{.type = 2, .rules = {Rule{}, Rule{}}, .process_set = {RawEvent{}}}.text();
    const uint32_t ids[] = {1536, 1538, 1540, 1541, 1542, 1543, 1544, 1793, 1794, 2304, 534};
    for (int round = 0; round < 400; ++round) {
        const uint32_t id = ids[random() % std::size(ids)];
        std::string bytes(random() % 300, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        if (round % 2 == 0) {  // or a document with some bytes changed, sometimes cut
            bytes = good.substr(0, round % 8 == 0 ? random() % good.size() : good.size());
            for (size_t change = random() % 4; change > 0 && !bytes.empty(); --change)
                bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        EXPECT_EQ(publish(id, bytes), LUMMB_OK);
        if (round % 40 == 0) settle();
    }
    settle();
    EXPECT_EQ(count_log(" given up: "), 0u);
    publish(Alert{.number = 2, .rules = {{.id = "new"}}});
    expect_event(770, guid(2));
}

TEST_F(Intake, MessagesAreCapturedInARingWhileTheFlagFileStands) {
    start();
    const auto trace_one = [&](int number, uint32_t id) {
        publish(Alert{.number = number}, id);
        expect_event(769, guid(number));
        return expect_event(770, guid(number)).bytes;
    };
    trace_one(1, 1536);
    EXPECT_EQ(count_log("reshdlproto_flag not exist"), 2u);
    EXPECT_EQ(std::filesystem::is_empty(path("kq-agent")), true);
    write("kq-agent/reshdlproto_flag", "");
    const std::string first = trace_one(2, 1536);
    EXPECT_EQ(read("kq-agent/ioa_alarm.data.1"), first);
    EXPECT_EQ(read("kq-agent/ioa_trc.data.2"), first);
    EXPECT_EQ(read("kq-agent/ioa_trc.data.2.size"), std::to_string(first.size()) + "\n");
    trace_one(3, 1538);  // whose trace is not captured
    EXPECT_EQ(publish(1793, ""), LUMMB_OK);
    expect_event(769);
    expect_event(770);
    EXPECT_EQ(read("kq-agent/kov_alarm.data.4") + read("kq-agent/kov_alarm.data.4.size"), "0\n");
    EXPECT_EQ(read("kq-agent/kov_trc.data.5.size"), "0\n");
    publish(DnsHit{});
    const std::string hit = expect_event(769).bytes;
    expect_event(770);
    EXPECT_EQ(read("kq-agent/ioc_alarm.data.6"), hit);
    EXPECT_EQ(read("kq-agent/ioc_trc.data.7"), hit);
    for (int number = 4; number < 11; ++number) trace_one(number, 1536);  // up to number 21
    const std::string last = trace_one(1000000, 1536);                    // numbers 1 and 2 again
    EXPECT_EQ(read("kq-agent/ioa_alarm.data.1"), last);
    EXPECT_EQ(read("kq-agent/ioa_alarm.data.1.size"),
              std::to_string(first.size()) + "\n" + std::to_string(last.size()) + "\n");
    EXPECT_TRUE(std::filesystem::exists(path("kq-agent/ioa_trc.data.21")));
    EXPECT_FALSE(std::filesystem::exists(path("kq-agent/ioa_alarm.data.22")));
    std::filesystem::remove(path("kq-agent/reshdlproto_flag"));
    trace_one(12, 1536);
    EXPECT_FALSE(std::filesystem::exists(path("kq-agent/ioa_alarm.data.3.size")) &&
                 read("kq-agent/ioa_alarm.data.3.size").find('\n', 5) != std::string::npos);
}

}  // namespace
