// Start, stop and restart; what the bus is told; starts that fail; pure mode; starts without the optional libraries.
#include "e2e/harness.h"

using namespace e2e;

namespace {

// A bus that only notes what it is asked.
struct FakeBus final : MbFrame::IRtmFrame, MbFrame::IPluginSetting, MbFrame::IDispatch {
    int32_t QueryInterface(const InterfaceId*, void**) override { return note("QueryInterface"); }
    int64_t AddRef() override { return note("AddRef"); }
    int64_t Release() override { return note("Release"); }
    void reserved6() override { note("reserved6"); }
    void reserved7() override { note("reserved7"); }
    int32_t Advise(MbFrame::IPlugin* plugin, uint32_t flag) override {
        note("Advise " + std::to_string(flag));
        if (calls_back) plugin->OnAdvised(this, this);
        return advise_result;
    }
    int32_t Unadvise(const unsigned char*) override { return note("Unadvise"); }
    int32_t SetOption(uint32_t value) override { return note("SetOption " + std::to_string(value)); }
    int32_t reserved2() override { return note("reserved2"); }
    int32_t SetEventTable(const MbFrame::EventTableEntry* table, uint32_t count) override {
        note("SetEventTable");
        for (uint32_t i = 0; i < count; ++i) note(std::to_string(table[i].uEventId) + (table[i].uFlag == 1 ? "" : "?"));
        return 0;
    }
    int32_t Invoke(MbFrame::IEvent*) override { return note("Invoke"); }
    int32_t note(const std::string& call) {
        calls += call + " ";
        return 0;
    }

    std::string calls;
    int32_t class_result = 0;
    int32_t advise_result = 0;
    bool calls_back = true;
} fake_bus;

}  // namespace

int32_t scripted_class_object(void** out) {
    *out = static_cast<MbFrame::IRtmFrame*>(&fake_bus);
    return fake_bus.class_result;
}

namespace {

constexpr const char* kBus = "reshdl/lib/liblummb.so";
constexpr const char* kStore = "reshdl/lib/libzelds.so";
constexpr const char* kTrace = "reshdl/lib/libzeltrc.so";
constexpr const char* kIpc = "reshdl/lib/libodaipc.so";

class Start : public Agent {};

TEST_F(Start, TellsTheBusItsTableInOrder) {
    replace(kBus, E2E_SCRIPTED);
    start();
    stop();
    EXPECT_EQ(fake_bus.calls,
              "Advise 1 SetOption 65536 SetEventTable 1536 1793 1281 1794 2304 534 1538 1538 1541 1540 1542 1543 1544 "
              "Unadvise Release ");
}

TEST_F(Start, LogsItsStepsAndReadsTheSettings) {
    set("zelreshdl.ini", "config", "queue_max=0x40");                                  // base 0
    set("zelreshdl.ini", "config", "trc_times=0x4");                                   // base 10: stops at the x
    set("zelreshdl.ini", "config", "trace_val=101\ninterval=0\ntrc_time=4294967297");  // beyond their limits
    write("kq-agent/alert_filter_disable_flag", "");
    start();
    const std::string steps =
        "Start handled event.|dll open zel_bpsdk success|init zel_bpsdk success|get agentid A-1|ZelbpmgrApi init.|"
        "dll open zel_bpmgr success|ZelbpmgrApi init successful.|zelreshdl start work thread!|"
        "queue max:64, interval:5, trace val:50, trc time:15, trc times:0, ioa match queue size:1000, "
        "disable scan scenario limit:100, alert_filter_switch:0|max skip behavior level: 2";
    EXPECT_EQ(log_order(steps), steps);
    EXPECT_EQ(calls(ZELTRC_INIT), 1u);
    for (const int number : {1, 2}) {  // no repeat while the filter is off
        send(Alert{.number = number, .rules = {{.id = "same"}}});
        EXPECT_EQ(expect_event(769, guid(number)).message.err_code(), 0);
    }
    EXPECT_EQ(report().result, 1);
    stop();
    expect_logs("Stop handled event.|stop work thread!");
    EXPECT_EQ(report().result, -1);  // no callback is left
    EXPECT_EQ(calls(ZELTRC_UNINIT), 1u);
}

TEST_F(Start, PlainExportsOnlyLogAndAllIsHarmlessBeforeInit) {
    EXPECT_EQ(EXPORTED(plugin_uninit)(), 0);
    EXPECT_EQ(EXPORTED(plugin_start)() + EXPORTED(plugin_stop)() + EXPORTED(plugin_update)(), 0);
    EXPECT_EQ(log_order("start handled event.|stop handled event."),
              "start handled event.|stop handled event.|stop handled event.");
    EXPECT_EQ(file_trace(1, 1), 0);  // the job has no queue, and goes
    EXPECT_EQ(process_trace(1), -1);
    reset_end();
    EXPECT_EQ(count_log("start reset_db_end!"), 0u);
}

TEST_F(Start, SecondInitChangesNothingAndRestartDoesNotAttachAgain) {
    start();
    start();
    expect_logs("The worker thread has been initialized.");
    send(Alert{});
    expect_event(770);
    trace_worker_rests();
    settle();
    stop();
    EXPECT_EQ(publish(1536, "x"), LUMMB_NOT_SUBSCRIBED);
    start();
    EXPECT_EQ(publish(1536, "x"), LUMMB_NOT_SUBSCRIBED);
    EXPECT_EQ(file_trace(1, 5), 0);
    EXPECT_EQ(expect_callback(5).code, 8);
}

struct FailedRow {
    const char* name;
    const char* library;
    const char* by;
    const char* logs;
    int32_t result = 0;  // of what is asked of the library
    bool calls_back = true;
};
class FailedStart : public Agent, public testing::WithParamInterface<FailedRow> {};

TEST_P(FailedStart, UndoesItselfWithItsLines) {
    const FailedRow& row = GetParam();
    replace(row.library, row.by);
    (row.name == std::string("NoFrame") ? fake_bus.class_result : fake_bus.advise_result) = row.result;
    fake_bus.calls_back = row.calls_back;
    answers(ZELTRC_INIT, {{row.result}});
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(log_order(row.logs), row.logs);
    EXPECT_EQ(publish(1536, "x"), LUMMB_NOT_SUBSCRIBED);
}

// The library in which a symbol is missing is another one.
constexpr FailedRow kFailedRows[] = {
    {"NoBus", kBus, "", "mb dll open failed!0x84ce0015|LoadMbDll failed!"},
    {"BusWithoutSymbol", kBus, kIpc, "mb dll_get_addr failed!0x84ce0015|LoadMbDll failed!"},
    {"NoFrame", kBus, E2E_SCRIPTED, "mb get object failed!0xfffffff7|LoadMbDll failed!", -9},
    {"AdviseRefused", kBus, E2E_SCRIPTED, "mb advise failed!0x00000007|LoadMbDll failed!", 7},
    {"NoDispatcher", kBus, E2E_SCRIPTED, "init failed!|LoadMbDll failed!", 0, false},
    {"NoStore", kStore, "", "ds dll open failed!0x84ce0015|load moudle failed!"},
    {"StoreWithoutSymbol", kStore, kIpc, "dll_get_addr failed!0x84ce0015|load moudle failed!"},
    {"NoTrace", kTrace, "", "zeltrc dll open failed!0x84ce0015|load moudle failed!"},
    {"TraceWithoutSymbol", kTrace, kIpc, "dll_get_addr failed!0x84ce0015|load moudle failed!"},
    {"TraceRefuses", kTrace, E2E_SCRIPTED, "trace_event_init failed!hr = 0xfffffffb", -5},
};
INSTANTIATE_TEST_SUITE_P(Table, FailedStart, testing::ValuesIn(kFailedRows), row_name);

struct PureRow {
    const char* name;
    const char* file;  // null: none
    bool pure;
};
class PureMode : public Agent, public testing::WithParamInterface<PureRow> {};

TEST_P(PureMode, FollowsTheFile) {
    const bool pure = GetParam().pure;
    if (GetParam().file != nullptr) write("config/zel_pure_mode.ini", GetParam().file);
    start();
    EXPECT_EQ(publish(1536, ""), pure ? LUMMB_NOT_SUBSCRIBED : LUMMB_OK);
    for (const uint32_t id : {1541u, 1542u}) send(id, "{}");
    expect_event(769);
    EXPECT_EQ(calls(ZELTRC_INIT), pure ? 0u : 1u);
    EXPECT_EQ(process_trace(3), pure ? -1 : 0);
    EXPECT_EQ(count_log("zeltrc proc_trc comp function is null."), pure ? 1u : 0u);
    EXPECT_EQ(file_trace(1, 4), 0);  // in pure mode no thread takes it, and the stop discards it
    if (!pure) expect_callback(4);
}

constexpr PureRow kPureRows[] = {
    {"NoFile", nullptr, false},
    {"NoSection", "", true},
    {"NoKey", "[advthreats_module]\nother=1\n", true},
    {"Zero", "[advthreats_module]\nenable=0\n", true},
    {"One", "[advthreats_module]\nenable=1\n", false},
};
INSTANTIATE_TEST_SUITE_P(Table, PureMode, testing::ValuesIn(kPureRows), row_name);

struct MissingRow {
    const char* name;
    std::vector<const char*> libraries;
    const char* logs;
};
class WithoutLibrary : public Agent, public testing::WithParamInterface<MissingRow> {};

TEST_P(WithoutLibrary, StartsWorksAndStops) {
    for (const char* library : GetParam().libraries) replace(library);
    start();
    EXPECT_EQ(log_order(GetParam().logs), GetParam().logs);
    EXPECT_EQ(count_log("[ZEL_BPMGR_REGISTER] module_name: % error."), count_log("dll open zel_bpmgr failed") * 2);
    EXPECT_EQ(count_log("ZelbpmgrApi init successful."), 1u);
    send(Alert{});
    expect_event(770);
    settle();
}

constexpr const char* kManager = "reshdl/lib/libzelbpmgr.so";
constexpr const char* kSdk = "lib/libzel_bpsdk.so";
constexpr const char* kAdapter = "reshdl/lib/libzellxadapter.so";
constexpr const char* kNoManager =
    "dll open zel_bpmgr failed, errcode:0x84ce0015|ZelbpmgrApi init failed, m_register_report_cb get error.";
const MissingRow kMissingRows[] = {
    {"Manager", {kManager}, kNoManager},
    {"Sdk", {kSdk}, "dll open zel_bpsdk failed, errcode:0x84ce0015"},
    {"Ipc", {kIpc}, ""},
    {"Adapter", {kAdapter}, ""},
    {"All", {kManager, kSdk, kIpc, kAdapter}, kNoManager},
};
INSTANTIATE_TEST_SUITE_P(Table, WithoutLibrary, testing::ValuesIn(kMissingRows), row_name);

}  // namespace
