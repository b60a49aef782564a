// Start, stop and restart; what the bus is told; starts that fail; pure mode; starts without the optional libraries.
#include "e2e/fake_bus.h"
#include "e2e/harness.h"
#include "support/refusals.h"

using namespace e2e;
using namespace zel_test;

int32_t scripted_class_object(void** out) {
    *out = static_cast<MbFrame::IRtmFrame*>(&fake_bus);
    return fake_bus.class_result;
}

namespace {

constexpr const char* kBus = "reshdl/lib/liblummb.so";
constexpr const char* kStore = "reshdl/lib/libzelds.so";
constexpr const char* kTrace = "reshdl/lib/libzeltrc.so";
constexpr const char* kIpc = "reshdl/lib/libodaipc.so";
constexpr const char* kNoSymbol = "dll_get_addr failed!0xffffffff|load moudle failed!";
constexpr const char* kNoFrame = "mb get object failed!0xfffffff7|LoadMbDll failed!";
constexpr const char* kRefused = "mb advise failed!0x00000007|LoadMbDll failed!";
// What the bus is asked from the start to the stop, and when it has not called back.
constexpr const char* kShort = "Advise 1 kind 1 Unadvise Release ";
constexpr const char* kWhole =
    "Advise 1 kind 1 SetOption 65536 SetEventTable 1536 1793 1281 1794 2304 534 1538 1538 1541 1540 1542 1543 1544 "
    "Unadvise Release ";
constexpr const char* kNoThread = "thread_start failed, 0xffffffff|Failed to start the worker thread.";

const std::multiset<std::string> kBothWorkers = {"zelreshdl_alarm", "zelreshdl_trc"};

class Start : public Agent {};

TEST_F(Start, LogsItsSteps) {
    set("zelreshdl.ini", "config", "interval=7");
    start();
    const std::string steps =
        "Start handled event.|dll open zel_bpsdk success|init zel_bpsdk success|get agentid A-1|ZelbpmgrApi init.|"
        "dll open zel_bpmgr success|ZelbpmgrApi init successful.|zelreshdl start work thread!|queue max:|"
        "max skip behavior level: 2";
    EXPECT_EQ(log_order(steps), steps);
    EXPECT_SOON(workers() == kBothWorkers);
    rests(trace_worker_sleeps);
    EXPECT_EQ(longest_trace_worker_sleep_us(), 7000u);
    EXPECT_EQ(calls(ZELTRC_INIT), 1u);
    for (const char* module : {"zelreshdl", "zeltrc"}) EXPECT_EQ(report(module).result, 1) << module;
    stop();
    expect_logs("Stop handled event.|stop work thread!");
    for (const char* module : {"zelreshdl", "zeltrc"}) EXPECT_EQ(report(module).result, -1) << module;
    EXPECT_EQ(calls(ZELTRC_UNINIT), 1u);
}

TEST_F(Start, FlagFileTurnsTheRepeatFilterOff) {
    write("kq-agent/alert_filter_disable_flag", "");
    start();
    for (const int number : {1, 2}) send(Alert{.number = number, .rules = {{.id = "same"}}});
    for (const int number : {1, 2}) EXPECT_EQ(expect_event(769, guid(number)).message.err_code(), 0);
    expect_logs("alert_filter_switch:0");
}

TEST_F(Start, ReadsEachSettingWithItsBaseAndLimits) {
    const char* const ini = "reshdl/config/zelreshdl.ini";
    const std::string no_file = "no file", no_keys = "no keys", staged = read(ini);
    const std::string zeros =
        "queue max:100, interval:5, trace val:0, trc time:0, trc times:0, "
        "ioa match queue size:0, disable scan scenario limit:0, ";
    const std::string defaults = "queue max:100, interval:5, trace val:50, trc time:15, trc times:8";
    const std::pair<std::string, std::string> rows[] = {
        {"queue_max=0x40", "queue max:64, interval:5, trace val:50, trc time:15, trc times:8"},
        {"queue_max=50\ninterval=1", "queue max:50, interval:1, "},
        {"queue_max=49\ninterval=0", defaults},
        {"queue_max=500\ninterval=10000", "queue max:500, interval:10000, "},
        {"queue_max=501\ninterval=10001", defaults},
        {"trace_val=010\ntrc_time=010", " trace val:10, trc time:10, "},
        {"trace_val=0x20\ntrc_times=0x4", " trace val:0, trc time:15, trc times:0, "},
        {"trace_val=101\ntrc_time=61", defaults},
        {"trc_times=9 apples\ninterval=9 apples", " interval:9, trace val:50, trc time:15, trc times:9, "},
        {"trc_times=-1\ninterval=4294967326", defaults},
        {"trc_times=17\ntrc_time=4294967297", defaults},
        {"ioa_match_queue_size=010000", " size:10000, disable scan scenario limit:100, alert_filter_switch:1"},
        {"disable_scan_scenario_limit=010000", " size:1000, disable scan scenario limit:10000, "},
        {"disable_scan_scenario_limit=10001", " size:1000, disable scan scenario limit:100, "},
        {no_keys, zeros},
        {no_file, zeros},
    };
    for (const auto& [set, logged] : rows) {
        set == no_file ? replace(ini) : write(ini, set == no_keys ? "" : staged + "\n[config]\n" + set);
        const size_t before = count_log(logged);
        start();
        EXPECT_EQ(count_log(logged), before + 1) << set;
        stop();
    }
    expect_logs("ini_file_get failed!|ini_file_load failed!");
}

TEST_F(Start, PlainExportsOnlyLogAndAllIsHarmlessBeforeInit) {
    EXPECT_EQ(plugin().uninit() + plugin().start() + plugin().stop() + plugin().update(), 0);
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
    EXPECT_EQ(count_log("queue max:"), 1u);  // the settings are not read again
    send(Alert{});
    expect_event(770);
    rests(trace_worker_sleeps);
    settle();
    EXPECT_EQ(workers(), kBothWorkers);
    stop();
    EXPECT_EQ(publish(1536, "x"), LUMMB_NOT_SUBSCRIBED);
    // The sanitizer builds keep such a library in memory.
    const bool loaded = zelhost::is_loaded(path("reshdl/lib/libzelbpmgr.so"));
    EXPECT_EQ(loaded, ZEL_ADDRESS_SANITIZER + ZEL_THREAD_SANITIZER > 0);
    start();
    EXPECT_EQ(publish(1536, "x"), LUMMB_NOT_SUBSCRIBED);
    EXPECT_EQ(file_trace(1, 5), 0);
    EXPECT_EQ(expect_callback(5).code, 8);
}

// A start that fails, and how the next one goes when the reason is gone.
struct FailedRow {
    const char* name;
    const char* logs;
    const char* library = kTrace;  // which is replaced
    const char* by = E2E_SCRIPTED;
    const char* symbol = "";  // which is not found
    int mutex = 0;            // whose creation fails, by number
    int thread = 0;
    int32_t code = 0;  // of what is asked of the library
    bool calls_back = false;
    const char* bus_calls = "";
};
class FailedStart : public Agent, public testing::WithParamInterface<FailedRow> {};

TEST_P(FailedStart, UndoesAllAndTheNextStartWorks) {
    const FailedRow& row = GetParam();
    setenv("ZEL_DLL_UNLOAD", "1", 1);                     // a library that stays in memory would be found again
    configure(R"({"delay_time":"0","queue_size":"0"})");  // makes the plug-in object, whose mutex is not refused
    replace(row.library, row.by);
    refused_symbol = row.symbol;
    refused_mutex = row.mutex;
    refused_thread = row.thread;
    fake_bus.class_result = row.name == std::string("NoFrame") ? row.code : 0;
    fake_bus.advise_result = row.code;
    fake_bus.calls_back = row.calls_back;
    answers(ZELTRC_INIT, {{row.code}});
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(log_order(row.logs), row.logs);
    EXPECT_EQ(fake_bus.calls(), row.bus_calls);
    EXPECT_EQ(publish(1536, "x"), LUMMB_NOT_SUBSCRIBED);
    EXPECT_EQ(calls(ZELTRC_UNINIT), calls(ZELTRC_INIT));
    EXPECT_EQ(process_trace(1), -1);  // no module is left
    EXPECT_EQ(workers(), std::multiset<std::string>());

    replace(row.library, row.library == kTrace ? E2E_SCRIPTED : row.library);
    refused_symbol = "";
    answers(ZELTRC_INIT, {{0}});
    const uint64_t inits = calls(ZELTRC_INIT);
    start();
    EXPECT_EQ(count_log("The module has been imported."), 0u);
    EXPECT_EQ(calls(ZELTRC_INIT), inits + 1);
    EXPECT_SOON(workers() == kBothWorkers);
    EXPECT_EQ(file_trace(1, 2), 0);
    EXPECT_EQ(expect_callback(2).code, 8);
    send(Alert{});  // the bus is attached anew
    expect_event(770, guid(1));
}

constexpr FailedRow kFailedRows[] = {
    {.name = "NoBus", .logs = "mb dll open failed!0x84ce0015|LoadMbDll failed!", .library = kBus, .by = ""},
    {.name = "NoClass", .logs = "mb dll_get_addr failed!0xffffffff|LoadMbDll failed!", .symbol = "DllGetClassObject"},
    {.name = "NoFrame", .logs = kNoFrame, .library = kBus, .code = -9, .bus_calls = "Unadvise Release "},
    {.name = "AdviseRefused", .logs = kRefused, .library = kBus, .code = 7, .bus_calls = kShort},
    {.name = "RefusedLate", .logs = kRefused, .library = kBus, .code = 7, .calls_back = true, .bus_calls = kWhole},
    {.name = "NoDispatcher", .logs = "init failed!|LoadMbDll failed!", .library = kBus, .bus_calls = kShort},
    {.name = "NoStore", .logs = "ds dll open failed!0x84ce0015|load moudle failed!", .library = kStore, .by = ""},
    {.name = "NoDsUpdateDb", .logs = kNoSymbol, .symbol = "ds_update_db"},
    {.name = "NoTrace", .logs = "zeltrc dll open failed!0x84ce0015|load moudle failed!", .by = ""},
    {.name = "NoInit", .logs = kNoSymbol, .symbol = "trace_event_init"},
    {.name = "NoDispose", .logs = kNoSymbol, .symbol = "trace_event_coordinate_dispose_trc"},
    {.name = "TraceRefuses", .logs = "trace_event_init failed!hr = 0xfffffffb", .code = -5},
    {.name = "NoEliminatorMutex", .logs = "mutex_init failed|init eliminator manager failed!", .mutex = 1},
    {.name = "NoEventMutex", .logs = "mutex_init error.", .mutex = 2},
    {.name = "NoDelayMutex", .logs = "mutex_init error.", .mutex = 4},
    {.name = "NoAlarmWorker", .logs = kNoThread, .thread = 1},
    {.name = "NoTraceWorker", .logs = kNoThread, .thread = 2},
};
INSTANTIATE_TEST_SUITE_P(Table, FailedStart, testing::ValuesIn(kFailedRows), row_name);

// A start within a reset period loads the modules that the end of the period wants to load.
TEST_F(Start, WithinAResetPeriodLeavesTheModulesToTheStart) {
    reset_begin();
    start();
    reset_end();
    EXPECT_EQ(count_log("The module has been imported."), 2u);
    EXPECT_EQ(calls(ZELTRC_INIT), 2u);
    send(Alert{});
    expect_event(770);
}

struct PureRow {
    const char *name, *file;  // null: no file
    bool pure;
};
class PureMode : public Agent, public testing::WithParamInterface<PureRow> {};

TEST_P(PureMode, FollowsTheFile) {
    const bool pure = GetParam().pure;
    if (GetParam().file != nullptr) write("config/zel_pure_mode.ini", GetParam().file);
    start();
    reset_begin();
    reset_end();
    EXPECT_EQ(publish(1536, ""), pure ? LUMMB_NOT_SUBSCRIBED : LUMMB_OK);
    for (const uint32_t id : {1541u, 1542u}) send(id, "{}");
    expect_event(769);
    EXPECT_EQ(calls(ZELTRC_INIT), pure ? 0u : 2u);
    EXPECT_EQ(process_trace(3), pure ? -1 : 0);
    EXPECT_EQ(count_log("zeltrc proc_trc comp function is null."), pure ? 1u : 0u);
    EXPECT_EQ(file_trace(1, 4), 0);  // in pure mode no thread takes it, and the stop discards it
    if (!pure) expect_callback(4);
    EXPECT_EQ(workers().count("zelreshdl_trc"), pure ? 0u : 1u);
}

constexpr PureRow kPureRows[] = {
    {.name = "NoFile", .file = nullptr, .pure = false},
    {.name = "NoKey", .file = "[advthreats_module]\nother=1\n", .pure = true},
    {.name = "Zero", .file = "[advthreats_module]\nenable=0\n", .pure = true},
    {.name = "One", .file = "[advthreats_module]\nenable=1\n", .pure = false},
};
INSTANTIATE_TEST_SUITE_P(Table, PureMode, testing::ValuesIn(kPureRows), row_name);

TEST_F(Start, WorksWithoutTheOptionalLibraries) {
    for (const char* library :
         {"reshdl/lib/libzelbpmgr.so", "lib/libzel_bpsdk.so", kIpc, "reshdl/lib/libzellxadapter.so"})
        replace(library);
    start();
    const std::string logs =
        "dll open zel_bpsdk failed, errcode:0x84ce0015|dll open zel_bpmgr failed, errcode:0x84ce0015|"
        "ZelbpmgrApi init failed, m_register_report_cb get error.";
    EXPECT_EQ(log_order(logs), logs);
    EXPECT_EQ(count_log("[ZEL_BPMGR_REGISTER] module_name: % error."), 2u);
    EXPECT_EQ(count_log("ZelbpmgrApi init successful."), 1u);
    send(Alert{});
    expect_event(770);
    settle();
    stop();
    replace("lib/libzel_bpsdk.so", E2E_REFUSING_SDK);
    start();
    expect_logs("init zel_bpsdk failed, errcode:0xfffffff7");
}

}  // namespace
