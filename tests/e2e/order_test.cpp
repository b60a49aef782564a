// What happens between the steps of a start and of a stop.
#include "e2e/fake_bus.h"
#include "e2e/harness.h"
#include "support/refusals.h"

using namespace e2e;

namespace {

constexpr const char* kBus = "reshdl/lib/liblummb.so";

class Order : public Agent {};

TEST_F(Order, EventDuringTheStartIsHandledWhenTheWorkersRun) {
    when_called(ZELTRC_INIT, [this] {
        send(Alert{});
        bus_rests();
    });
    start();
    expect_event(769, guid(1));
    expect_event(770, guid(1));
    EXPECT_EQ(count_log("Get event struct error!"), 0u);
    expect_figures({{"recvAlarmCount", 1}, {"eventQueueTotalCount", 1}});
}

// An event that holds a text, and deletes itself.
struct TextEvent final : MbFrame::IEvent {
    TextEvent(uint32_t id, std::string text) : id_(id), text_(std::move(text)) {}
    int64_t Release() override {
        delete this;
        return 0;
    }
    int32_t QueryInterface(const InterfaceId*, void**) override { return -1; }
    uint32_t GetEventId() override { return id_; }
    void* GetNativeEvent() override { return id_ == 1536 ? static_cast<void*>(&document_) : &finding_; }
    int32_t GetPublishedState() override { return 0; }

private:
    uint32_t id_;
    std::string text_;
    ST_COMMON_BUFFER finding_{.uType = id_, .uSize = text_.size(), .pData = text_.data()};
    ST_JSON_BUFFER document_{.pData = text_.data(), .uSize = text_.size()};
};

TEST_F(Order, LimitIs0UntilTheSettingsAreRead) {
    replace(kBus, E2E_SCRIPTED);
    fake_bus.advised = [](MbFrame::IPlugin& plugin) {
        for (int i = 0; i < 2; ++i) plugin.OnEvent(new TextEvent(1541, "{}"), nullptr);
    };
    start();
    expect_logs("The queue reached the threshold. Event queue:1, trc queue:0, delay queue:0");
    EXPECT_SOON(fake_bus.calls().ends_with("Invoke "));
    expect_figures({{"eventQueueTotalCount", 1}, {"eventQueueOverflowCount", 1}});
}

// After the second start the retry would be due, and the account would be of 120 s.
TEST_F(Order, StopRefusesEventsAndForgetsRetriesAndTheirAccount) {
    replace(kBus, E2E_SCRIPTED);
    MbFrame::IPlugin* plugin = nullptr;
    fake_bus.advised = [&](MbFrame::IPlugin& advised) { plugin = &advised; };
    answers(ZELTRC_CREATE, {{ZEL_TRC_NOT_READY}, {0}});
    start();
    const Alert before{.number = 1, .rules = {{.events = std::vector<RawEvent>(4)}}}, after{.number = 2};
    plugin->OnEvent(new TextEvent(1536, before.text()), nullptr);
    expect_logs("alert trace retry");
    zel_test::before_join = [&] { plugin->OnEvent(new TextEvent(1541, "{}"), nullptr); };
    stop();
    zel_test::before_join = nullptr;
    EXPECT_EQ(count_log("Get event struct error!"), 2u);  // one for each worker
    start();
    hold_traces(true);
    plugin->OnEvent(new TextEvent(1536, after.text()), nullptr);
    EXPECT_SOON(calls(ZELTRC_CREATE) == 2);
    advance(30s);
    hold_traces(false);
    expect_logs("alert trace success, guid:" + guid(2) + "|predict delay time: 0");
    rests(trace_worker_sleeps);
    EXPECT_EQ(calls(ZELTRC_CREATE), 2u);
}

TEST_F(Order, FailedStartDiscardsWhatItHasTaken) {
    when_called(ZELTRC_INIT, [this] {
        when_called(ZELTRC_INIT, nullptr);
        send(Alert{});
        send(DnsHit{});
        bus_rests();
        EXPECT_EQ(count_log("[work queue count : 2]"), 1u);
    });
    answers(ZELTRC_INIT, {{-5}, {0}});
    EXPECT_EQ(init(), -1);
    start();
    rests(alarm_worker_sleeps);
    EXPECT_EQ(count_events(769), 0u);
    EXPECT_EQ(report()["eventQueueTotalCount"], 0);  // the second start counts anew
}

TEST_F(Order, FrameOfAFailedStartIsForgotten) {
    setenv("ZEL_DLL_UNLOAD", "1", 1);  // a library that stays in memory would be found again
    replace(kBus, E2E_SCRIPTED);
    fake_bus.advise_result = 7;
    fake_bus.calls_back = false;
    EXPECT_EQ(init(), -1);
    const std::string calls = fake_bus.calls();
    replace(kBus, "reshdl/lib/libodaipc.so");
    EXPECT_EQ(init(), -1);
    expect_logs("mb dll_get_addr failed!0x84ce0015");
    EXPECT_EQ(fake_bus.calls(), calls);
}

}  // namespace
