// Start, stop and restart; what the bus is told; starts that fail; pure mode.
#include <gmock/gmock.h>

#include <filesystem>

#include "e2e/harness.h"

using namespace e2e;
using testing::ElementsAre;

namespace {

// A bus that only notes what it is asked, or refuses.
struct FakeBus final : MbFrame::IRtmFrame, MbFrame::IPluginSetting, MbFrame::IDispatch {
    int32_t QueryInterface(const InterfaceId*, void**) override { return -1; }
    int64_t AddRef() override { return 1; }
    int64_t Release() override { return note("Release"); }
    void reserved6() override { note("reserved"); }
    void reserved7() override { note("reserved"); }
    int32_t Advise(MbFrame::IPlugin* plugin, uint32_t flag) override {
        note("Advise " + std::to_string(flag));
        unsigned char id[16];
        EXPECT_EQ(plugin->GetPluginId(id), 0);
        if (advise_calls_back) plugin->OnAdvised(this, this);
        return advise_result;
    }
    int32_t Unadvise(const unsigned char*) override { return note("Unadvise"); }
    int32_t SetOption(uint32_t value) override { return note("SetOption " + std::to_string(value)); }
    int32_t reserved2() override { return note("reserved"); }
    int32_t SetEventTable(const MbFrame::EventTableEntry* table, uint32_t count) override {
        for (uint32_t i = 0; i < count; ++i) {
            subscribed.push_back(table[i].uEventId);
            EXPECT_EQ(table[i].uFlag, 1u);
        }
        return note("SetEventTable");
    }
    int32_t Invoke(MbFrame::IEvent*) override { return note("Invoke"); }

    int32_t note(const std::string& call) {
        calls.push_back(call);
        return 0;
    }

    std::vector<std::string> calls;
    std::vector<uint32_t> subscribed;
    int32_t class_result = 0;
    int32_t advise_result = 0;
    bool advise_calls_back = true;
} fake_bus;

}  // namespace

int32_t scripted_class_object(void** out) {
    *out = static_cast<MbFrame::IRtmFrame*>(&fake_bus);
    return fake_bus.class_result;
}

namespace {

class Start : public Agent {};

TEST_F(Start, TellsTheBusItsTableInOrder) {
    replace("reshdl/lib/liblummb.so", E2E_SCRIPTED);
    start();
    stop();
    EXPECT_THAT(fake_bus.calls, ElementsAre("Advise 1", "SetOption 65536", "SetEventTable", "Unadvise", "Release"));
    EXPECT_THAT(fake_bus.subscribed,
                ElementsAre(1536, 1793, 1281, 1794, 2304, 534, 1538, 1538, 1541, 1540, 1542, 1543, 1544));
}

TEST_F(Start, LogsItsStepsAndReadsTheSettings) {
    set("zelreshdl:config:queue_max", "0x40");  // base 0
    set("zelreshdl:config:trc_times", "0x4");   // base 10: stops at the x
    set("zelreshdl:config:trace_val", "101");   // above its limit
    set("zelreshdl:config:interval", "0");      // below its lowest
    set("zelreshdl:cache:cache_size", "10");
    write("kq-agent/alert_filter_disable_flag", "");
    start();
    const std::vector<std::string> steps = {
        "Start handled event.",
        "dll open zel_bpsdk success",
        "init zel_bpsdk success",
        "get agentid A-1",
        "ZelbpmgrApi init.",
        "dll open zel_bpmgr success",
        "ZelbpmgrApi init successful.",
        "zelreshdl start work thread!",
        "queue max:64, interval:5, trace val:50, trc time:0, trc times:0, ioa match queue size:1000, "
        "disable scan scenario limit:100, alert_filter_switch:0",
        "max skip behavior level: 2"};
    EXPECT_EQ(log_order(steps), steps);
    EXPECT_EQ(calls(ZELTRC_INIT), 1u);
    stop();
    expect_logs({"Stop handled event.", "stop work thread!"});
    EXPECT_EQ(calls(ZELTRC_UNINIT), 1u);
}

TEST_F(Start, PlainExportsOnlyLogAndUninitIsHarmlessBeforeInit) {
    EXPECT_EQ(EXPORTED(plugin_uninit)(), 0);
    EXPECT_EQ(EXPORTED(plugin_start)(), 0);
    EXPECT_EQ(EXPORTED(plugin_stop)(), 0);
    EXPECT_EQ(EXPORTED(plugin_update)(), 0);
    EXPECT_EQ(count_log("start handled event."), 1u);
    EXPECT_EQ(count_log("stop handled event."), 2u);
    EXPECT_EQ(file_trace(1, 1), 0);  // the job has no queue, and goes
    EXPECT_EQ(process_trace(1), -1);
    reset_end();
    EXPECT_EQ(count_log("start reset_db_end!"), 0u);
}

TEST_F(Start, SecondInitChangesNothingAndRestartDoesNotAttachAgain) {
    start();
    EXPECT_EQ(init(), 0);
    expect_log("The worker thread has been initialized.");
    publish(Alert{});
    expect_event(770);
    settle();
    stop();
    EXPECT_EQ(publish(1536, "x"), LUMMB_NOT_SUBSCRIBED);

    start();
    EXPECT_EQ(publish(1536, "x"), LUMMB_NOT_SUBSCRIBED);
    EXPECT_EQ(file_trace(1, 5), 0);
    EXPECT_EQ(expect_callback(5).code, 8);
}

struct FailedRow {
    int line;
    const char* name;
    const char* library;
    const char* by;
    std::vector<std::string> logs;
    int32_t class_result = 0;
    int32_t advise_result = 0;
    bool advise_calls_back = true;
    int32_t init_code = 0;
};
class FailedStart : public Agent, public testing::WithParamInterface<FailedRow> {};

TEST_P(FailedStart, UndoesItselfWithItsLines) {
    const FailedRow& row = GetParam();
    SCOPED_TRACE(row.line);
    if (row.library != nullptr) replace(row.library, row.by);
    fake_bus.class_result = row.class_result;
    fake_bus.advise_result = row.advise_result;
    fake_bus.advise_calls_back = row.advise_calls_back;
    answers(ZELTRC_INIT, {{row.init_code}});
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(log_order(row.logs), row.logs);
    EXPECT_EQ(publish(1536, "x"), LUMMB_NOT_SUBSCRIBED);
}

constexpr const char* kBus = "reshdl/lib/liblummb.so";
constexpr const char* kOther = "reshdl/lib/libodaipc.so";  // has none of the functions
INSTANTIATE_TEST_SUITE_P(
    Table, FailedStart,
    testing::Values(
        FailedRow{__LINE__, "NoBus", kBus, "", {"mb dll open failed!0x84ce0015", "LoadMbDll failed!"}},
        FailedRow{
            __LINE__, "BusWithoutSymbol", kBus, kOther, {"mb dll_get_addr failed!0x84ce0015", "LoadMbDll failed!"}},
        FailedRow{__LINE__, "NoFrame", kBus, E2E_SCRIPTED, {"mb get object failed!0xfffffff7"}, -9},
        FailedRow{__LINE__, "AdviseRefused", kBus, E2E_SCRIPTED, {"mb advise failed!0x00000007"}, 0, 7},
        FailedRow{__LINE__, "NoDispatcher", kBus, E2E_SCRIPTED, {"init failed!", "LoadMbDll failed!"}, 0, 0, false},
        FailedRow{__LINE__,
                  "NoStore",
                  "reshdl/lib/libzelds.so",
                  "",
                  {"ds dll open failed!0x84ce0015", "load moudle failed!"}},
        FailedRow{__LINE__,
                  "StoreWithoutSymbol",
                  "reshdl/lib/libzelds.so",
                  kOther,
                  {"dll_get_addr failed!0x84ce0015", "load moudle failed!"}},
        FailedRow{__LINE__,
                  "NoTrace",
                  "reshdl/lib/libzeltrc.so",
                  "",
                  {"zeltrc dll open failed!0x84ce0015", "load moudle failed!"}},
        FailedRow{__LINE__,
                  "TraceWithoutSymbol",
                  "reshdl/lib/libzeltrc.so",
                  kOther,
                  {"dll_get_addr failed!0x84ce0015", "load moudle failed!"}},
        FailedRow{__LINE__, "TraceRefuses", nullptr, "", {"trace_event_init failed!hr = 0xfffffffb"}, 0, 0, true, -5}),
    row_name);

struct PureRow {
    const char* name;
    const char* file;  // null: none
    bool pure;
};
class PureMode : public Agent, public testing::WithParamInterface<PureRow> {};

TEST_P(PureMode, FollowsTheFile) {
    const auto& [name, file, pure] = GetParam();
    if (file != nullptr) write("config/zel_pure_mode.ini", file);
    start();
    EXPECT_EQ(publish(1536, Alert{}.text()), pure ? LUMMB_NOT_SUBSCRIBED : LUMMB_OK);
    EXPECT_EQ(publish(1541, "{}"), LUMMB_OK);
    EXPECT_EQ(publish(1542, "{}"), LUMMB_OK);
    expect_event(769);
    EXPECT_EQ(calls(ZELTRC_INIT), pure ? 0u : 1u);
    EXPECT_EQ(process_trace(3), pure ? -1 : 0);
    EXPECT_EQ(count_log("zeltrc proc_trc comp function is null."), pure ? 1u : 0u);
    EXPECT_EQ(file_trace(1, 4), 0);  // in pure mode no thread takes it, and the stop discards it
    if (!pure) {
        EXPECT_EQ(expect_callback(4).code, 8);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, PureMode,
                         testing::Values(PureRow{"NoFile", nullptr, false}, PureRow{"NoSection", "", true},
                                         PureRow{"NoKey", "[advthreats_module]\nother=1\n", true},
                                         PureRow{"Zero", "[advthreats_module]\nenable=0\n", true},
                                         PureRow{"NoNumber", "[advthreats_module]\nenable=yes\n", true},
                                         PureRow{"One", "[advthreats_module]\nenable=1\n", false}),
                         row_name);

}  // namespace
