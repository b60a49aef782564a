// The trace stage: retries, failures, shedding, the reset period, stops; KOV alerts and on-demand traces on it.
#include <gmock/gmock.h>

#include "e2e/harness.h"
#include "standin/zelds/zelds_host.h"
#include "support/refusals.h"
#include "support/show.h"

using namespace e2e;

namespace {

class Traces : public Agent {};

TEST_F(Traces, RetryWaitsFifteenSecondsAndTheFrontHoldsBackAllBehindIt) {
    const std::string retry = "alert trace retry, guid:";
    answers(ZELTRC_CREATE, {{ZEL_TRC_NOT_READY}, {ZEL_TRC_NOT_READY}, {ZEL_TRC_NOT_READY, false}, {0}});
    start();
    send(Alert{.number = 1});
    expect_logs(retry + guid(1));
    EXPECT_EQ(calls(ZELTRC_RELEASE), 1u);
    advance(10s);
    send(Alert{.number = 2});
    expect_logs(retry + guid(2));
    advance(4s);
    rests(trace_worker_sleeps);
    EXPECT_EQ(calls(ZELTRC_CREATE), 2u);
    advance(1s);
    expect_log(retry + guid(1), 2);        // behind the second alert now, whose turn comes in 10 s
    EXPECT_EQ(calls(ZELTRC_RELEASE), 3u);  // a result that is null is given back, too
    rests(trace_worker_sleeps);
    EXPECT_EQ(calls(ZELTRC_CREATE), 3u);
    advance(10s);
    expect_event(770, guid(2));
    rests(trace_worker_sleeps);
    EXPECT_EQ(count_events(770), 1u);
    advance(-11s);  // a clock that goes back makes it due
    expect_event(770, guid(1));
    expect_figures({{"sentToTrcCount", 5}, {"firstTraceTotalCount", 2}, {"delayedTraceTotalCount", 3}});
}

// Both become due while the trace worker sleeps through a reset period, so that one turn of it finds both.
TEST_F(Traces, RetryGoesBeforeAFirstAttempt) {
    answers(ZELTRC_CREATE, {{ZEL_TRC_NOT_READY}, {0}});
    start();
    send(Alert{.number = 1});
    expect_logs("alert trace retry, guid:" + guid(1));
    expect_event(769, guid(1));
    hold_alarm_worker();
    reset_begin();
    EXPECT_SOON(longest_trace_worker_sleep_us() == 10'000'000);
    hold_traces(false);
    kept_results_ = 1;  // of the KOV alert, released when the module was gone
    const std::string line = "alert trace success, guid:", retry = line + guid(1);
    const std::string completed = line + expect_event(769).guid;
    rests(alarm_worker_sleeps);
    advance(15s);
    reset_end();
    for (int i = 0; i < 2; ++i) expect_event(770);
    EXPECT_EQ(log_order(retry + "|" + completed), completed + "|" + retry + "|" + completed);
}

TEST_F(Traces, AreGivenUpAfterTheLastTry) {
    set("zelreshdl.ini", "config", "trc_times=2");
    answers(ZELTRC_CREATE, {{ZEL_TRC_NOT_READY}, {ZEL_TRC_NOT_READY, false}});
    start();
    send(Alert{});
    expect_logs("alert trace retry");
    advance(15s);
    expect_logs("Try more than 2 times, discard! guid:" + guid(1) + "|alert trace failed, guid:" + guid(1));
    zelds_counts store{};
    const zelhost::Library ledger(path("reshdl/lib/libzelcount.so"));
    zelhost::Function<zelds_get_counts_t>(ledger, "zelds_get_counts")(&store);
    EXPECT_EQ(store.updates, 1u);  // for the retry
    settle();
    EXPECT_EQ(count_events(770), 0u);
    expect_figures({{"traceFailedCount", 1}});
}

// Whatever it throws: nothing of it may cross the border, and the next trace must not suffer.
TEST_F(Traces, FailWhenTheModuleThrows) {
    start();
    when_called(ZELTRC_CREATE, [] { throw 7; });
    send(Alert{.number = 1, .rules = {{.id = "first"}}});
    expect_logs("call of the trace module given up: unknown exception|alert trace failed, guid:" + guid(1));
    when_called(ZELTRC_CREATE, nullptr);
    send(Alert{.number = 2, .rules = {{.id = "second"}}});
    expect_event(770, guid(2));
    EXPECT_EQ(count_events(770), 1u);
}

TEST_F(Traces, AreOffWithoutAnyTry) {
    set("zelreshdl.ini", "config", "trc_times=0");
    start();
    send(Alert{});
    settle();
    rests(trace_worker_sleeps);
    EXPECT_EQ(calls(ZELTRC_CREATE), 0u);
}

TEST_F(Traces, EndByTheModulesCode) {
    set("zelreshdl.ini", "config", "trc_times=1");
    start();
    const std::tuple<int, Answer, std::string, size_t, size_t> rows[] = {
        // code and result, log line, events of an alert, callbacks of a file trace
        {__LINE__, {0}, "success", 1, 1},
        {__LINE__, {.code = 0, .result = false}, "success", 0, 0},
        {__LINE__, {ZEL_TRC_DROPPED}, "dropped", 1, 1},
        {__LINE__, {.code = ZEL_TRC_DROPPED, .result = false}, "dropped", 0, 0},
        {__LINE__, {kTraceFails}, "failed", 1, 0},
        {__LINE__, {.code = kTraceFails, .result = false}, "failed", 0, 0},
        {__LINE__, {ZEL_TRC_NOT_READY}, "failed", 1, 0},
        {__LINE__, {1}, "failed", 1, 0},
    };
    int number = 0;
    size_t all_events = 0;
    for (const auto& [row, answer, end, events, callbacks] : rows) {
        SCOPED_TRACE(row);
        answers(ZELTRC_CREATE, {answer});
        send(Alert{.number = ++number});
        const std::string line = "alert trace " + end + ", guid:";
        expect_logs(line + guid(number));
        rests(trace_worker_sleeps);
        settle();
        const size_t lines = count_log(line);
        const auto context = 100u + static_cast<uint32_t>(number);
        EXPECT_EQ(file_trace(1, context), 0);
        expect_log(line, lines + 1);
        rests(trace_worker_sleeps);
        EXPECT_EQ(count_callbacks(context), callbacks);
        EXPECT_EQ(count_events(770), all_events += events);
    }
    EXPECT_EQ(count_log("current predict time"), 2u);  // an alert that failed teaches no cost
    expect_figures({{"sentToTrcCount", 16}, {"traceFailedCount", 8}, {"traceDroppedCount", 4}});
}

TEST_F(Traces, AreShedWhenTheBacklogGrowsTooLong) {
    start();
    hold_traces(true);
    const auto alert = [](int number, size_t events) {
        return Alert{.number = number, .rules = {{.events = std::vector<RawEvent>(events)}}};
    };
    send(alert(1, 4));
    EXPECT_SOON(calls(ZELTRC_CREATE) == 1);
    for (const int number : {2, 3, 4}) send(alert(number, 2));
    settle();
    advance(80s);  // 20 s for each event: the others would take 120 s, twice the limit
    hold_traces(false);
    expect_logs("drop alarm: " + guid(2) + "|drop alarm: " + guid(3) +
                "|drop trace will decrease: |alert trace dropped, guid:" + guid(2) +
                "|alert trace dropped, guid:" + guid(3));
    expect_event(770, guid(4));
    EXPECT_EQ(calls(ZELTRC_CREATE), 2u);
    EXPECT_EQ(count_log("drop alarm: "), 2u);
    expect_figures({{"traceDroppedCount", 2}, {"sentToTrcCount", 4}, {"ioaTrunkTracePredict", 300}});
}

TEST_F(Traces, ResetPeriodTurnsEventsAwayAndUnloadsTheModules) {
    start();
    hold_traces(true);
    send(Alert{.number = 1});
    EXPECT_SOON(calls(ZELTRC_CREATE) == 1);
    reset_begin();  // does not wait for the trace that runs
    reset_begin();
    EXPECT_EQ(std::tuple(count_log("start reset_db_begin!"), calls(ZELTRC_UNINIT)), std::tuple(1u, 1u));
    hold_traces(false);
    expect_event(770, guid(1));
    kept_results_ = 1;  // its module is gone when the event is released for the last time
    send(Alert{.number = 2});
    bus_rests();
    EXPECT_EQ(file_trace(1, 1, nullptr, nullptr), -2);
    EXPECT_EQ(process_trace(1, nullptr), -2);
    EXPECT_EQ(count_log("Invalid parameter!"), 0u);
    EXPECT_EQ(configure(R"({"delay_time":"60000","queue_size":"60"})"), 0);
    EXPECT_SOON(longest_trace_worker_sleep_us() == 10'000'000);
    reset_end();
    reset_end();
    EXPECT_EQ(std::tuple(count_log("start reset_db_end!"), calls(ZELTRC_INIT)), std::tuple(1u, 2u));
    send(Alert{.number = 3});
    expect_event(770, guid(3));
    EXPECT_EQ(count_events(769), 2u);
    expect_figures({{"recvAlarmCount", 2}});
}

TEST_F(Traces, AlarmWorkerGoesOnInAResetPeriodAndAFailedReloadOnlyFailsTraces) {
    setenv("ZEL_DLL_UNLOAD", "1", 1);  // a library that stays in memory would be found again
    start();
    hold_alarm_worker();
    send(Alert{.number = 1});
    send(1794, "x");
    send(1793, "x");
    bus_rests();
    reset_begin();
    hold_traces(false);
    expect_event(769, guid(1));
    expect_logs("trc_ex event invoke failed!|zeltrc comp function is null.|GetKovAlarm failed!");
    replace("reshdl/lib/libzelds.so");
    reset_end();
    expect_logs("ds dll open failed!0x84ce0015|load moudle failed!|alert trace failed, guid:" + guid(1));
    kept_results_ = 1;  // the message of the first KOV alert, released when the module was gone
    EXPECT_EQ(process_trace(1), -1);
    settle();
    EXPECT_EQ(count_events(770), 0u);
}

TEST_F(Traces, StopWithFullQueuesFreesAllAndEndsInTime) {
    set("zelreshdl.ini", "config", "queue_max=50");
    answers(ZELTRC_CREATE, {{ZEL_TRC_NOT_READY}, {ZEL_TRC_NOT_READY}, {0}});
    start();
    for (const int number : {1, 2}) send(Alert{.number = number});
    expect_log("alert trace retry", 2);
    hold_traces(true);
    for (int number = 3; number < 13; ++number) send(Alert{.number = number});
    settle();
    hold_alarm_worker();
    for (int number = 13; number < 33; ++number) send(Alert{.number = number});
    send(DnsHit{});
    bus_rests();
    zel_test::before_join = [&] {
        EXPECT_EQ(publish(1536, "x"), LUMMB_NOT_SUBSCRIBED);
        hold_traces(false);
    };
    stop();
    zel_test::before_join = nullptr;
    EXPECT_SOON(count_events(769) == 13);  // what a worker held was finished, all else discarded
    kept_results_ = 2;                     // of these two, released when the module was gone
    EXPECT_EQ(file_trace(1, 1), 0);        // taken, and gone
    start();
    rests(alarm_worker_sleeps);
    rests(trace_worker_sleeps);
    EXPECT_EQ(count_callbacks(1), 0u);
    EXPECT_EQ(count_events(769), 13u);
    EXPECT_LE(count_events(770), 1u);  // the trace worker may not have begun with the third
}

TEST_F(Traces, KovAlertIsCompletedAndThenTraced) {
    start();
    vorn_retrace::vorn_trace_info alert;
    alert.set_task_id("kov");
    const std::string data = alert.SerializeAsString();
    send(1793, data);
    const Published report = expect_event(769);
    EXPECT_EQ(std::tuple(report.source, report.bytes), std::tuple(1793u, data));
    const Published trace = expect_event(770);
    EXPECT_EQ(std::tuple(trace.source, trace.guid, trace.bytes), std::tuple(1793u, report.guid, data));
    EXPECT_EQ(std::tuple(calls(ZELTRC_COMPLETION), calls(ZELTRC_CREATE)), std::tuple(1u, 1u));
    expect_figures({{"firstTraceTotalCount", 2}});
    // The first report had no figures of traces yet.
    expect_figures({{"firstTraceTotalCount", 0}, {"successCount", 2}, {"firstSuccessCount", 1}});
}

TEST_F(Traces, KovRetryEntersTheTraceQueueAtOnceAndACompletedAlertHasAllItsTriesAgain) {
    set("zelreshdl.ini", "config", "trc_times=2");
    answers(ZELTRC_COMPLETION, {{ZEL_TRC_NOT_READY}, {ZEL_TRC_NOT_READY}, {0}});
    answers(ZELTRC_CREATE, {{ZEL_TRC_NOT_READY}, {0}});
    start();
    send(1793, "\x12\x01x");
    expect_log("alert trace retry", 2);
    EXPECT_EQ(calls(ZELTRC_COMPLETION), 2u);
    for (const auto& [retries, event] : {std::pair{2u, 769u}, {3u, 770u}}) {
        expect_log("alert trace retry", retries);
        advance(15s);
        expect_event(event);
    }
    expect_figures({{"firstTraceTotalCount", 3}, {"delayedTraceTotalCount", 2}, {"traceFailedCount", 0}});
    EXPECT_EQ(count_log("GetKovAlarm failed!"), 2u);
}

TEST_F(Traces, KovFailureGoesOutWithDataAndIsNotTraced) {
    write("kq-agent/reshdlproto_flag", "");
    answers(ZELTRC_COMPLETION, {{.code = 0, .size_alone = true}, {kTraceFails}, {kTraceFails, false}});
    start();
    for (const char* data : {"a size but no buffer", "\x12\x01x", "\x12\x01y"}) send(1793, data);
    EXPECT_EQ(expect_event(769).bytes, "\x12\x01x");
    expect_logs("Failed to complete the alarm information.|Invoke buf is null!|event invoke failed!");
    kept_results_ = 1;  // the event of such an alert is never released
    settle();
    EXPECT_EQ(count_events(769), 1u);
    EXPECT_EQ(calls(ZELTRC_CREATE), 0u);
    EXPECT_EQ(read("kq-agent/kov_alarm.data.1") + read("kq-agent/kov_alarm.data.1.size"), "0\n");
}

TEST_F(Traces, ExpansionsAndOnDemandTracesAreAnswered) {
    answers(ZELTRC_EXPAND, {{kTraceFails}, {0, false}});
    start();
    for (const char* data : {"\x12\x01x", "\x12\x01y"}) send(1794, data);
    const Published answer = expect_event(770);
    EXPECT_EQ(std::tuple(answer.source, answer.guid.size(), answer.bytes), std::tuple(1794u, 36u, "\x12\x01x"));
    expect_logs("start handle trc_ex!|Invoke buf is null!|trc_ex event invoke failed!");

    for (const auto& [kind, field] : {std::pair{0, " 5={"}, {1, " 10={"}, {2, " 5={"}}) {
        const auto context = 10 + static_cast<uint32_t>(kind);
        EXPECT_EQ(file_trace(kind, context, "/x", "key"), 0);
        const Callback callback = expect_callback(context);
        EXPECT_EQ(callback.code, 8);
        EXPECT_THAT(zel_test::show(callback.bytes), testing::HasSubstr(field)) << kind;
    }
    EXPECT_EQ(file_trace(1, 1, nullptr), -1);
    EXPECT_EQ(file_trace(1, 1, "/x", nullptr), -1);
    EXPECT_EQ(process_trace(1, nullptr), -1);
    EXPECT_EQ(process_trace(1, ""), -1);
    EXPECT_EQ(count_log("Invalid parameter!"), 4u);
    EXPECT_EQ(file_trace(1, 2, "/\x01", "key"), 0);  // no message: the module is asked all the same, for nothing
    EXPECT_EQ(expect_callback(2).bytes, "");

    EXPECT_EQ(process_trace(3, "data"), 0);
    EXPECT_EQ(std::tuple(expect_callback(3).code, expect_callback(3).bytes), std::tuple(10, "data"));
    answers(ZELTRC_DISPOSE, {{kTraceFails, false}});
    EXPECT_EQ(process_trace(4, "data"), 0);
    EXPECT_EQ(std::tuple(expect_callback(4).code, expect_callback(4).bytes), std::tuple(10, "null"));
    EXPECT_SOON(calls(ZELTRC_RELEASE) == 8);  // of each answer, those without a result among them
}

}  // namespace
