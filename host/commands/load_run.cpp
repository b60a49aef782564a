// The load itself: start, periods of publishing, the wait for the rest, and the account.
#include <stdlib.h>

#include <algorithm>
#include <numeric>

#include "host/commands/load_run.h"
#include "host/lib/console.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"
#include "host/lib/ticker.h"
#include "host/load/machine.h"
#include "host/load/process_memory.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;
using Clock = Meter::Clock;
using Seconds = std::chrono::duration<double>;

// How often the wait for the end looks at the account.
constexpr auto kSettleStep = 2ms;
// How long nothing may happen before a load without a log counts as ended.
constexpr auto kQuiet = 300ms;
// So many samples make a picture; a short load is looked at more often.
constexpr auto kShortestTick = 200ms;
constexpr int kMostTicks = 2000;
// How long a load is that does not search.
constexpr std::chrono::milliseconds kUsual = 10s;

// The logger reads these at its first line. The account needs no file: it reads the log at the logger's tap.
// Values of the environment that are set already stay.
void prepare_log() {
    setenv("agentid", "load", 0);
    setenv("ZEL_LOG_FILE", "/dev/null", 0);
    setenv("ZEL_LOG_LEVEL", "error", 0);
}

// --set may ask the trace module for results of traces that are not complete.
// Such results are more than successes, and the account has to know that.
bool partial_results(const std::vector<Setting>& settings) {
    return std::ranges::any_of(settings, [](const Setting& s) { return s.key == "partial_result" && s.value != "0"; });
}

// Whether more waits in the second half of the samples than in the first, by a tenth of what the queues hold. Without
// the log nobody knows which traces have ended without a chain, so that only the bus is looked at.
// `queue_max` is the setting of the plug-in.
bool grows(const std::vector<LoadSample>& samples, uint64_t queue_max, bool log) {
    const auto waiting = [log](double sum, const LoadSample& s) {
        return sum + static_cast<double>(s.inbox + (log ? s.trc_queue + s.delay_queue : 0));
    };
    const auto half = static_cast<std::ptrdiff_t>(samples.size() / 2);
    // A single sample has no halves.
    if (half == 0) return false;
    const double first = std::accumulate(samples.begin(), samples.begin() + half, 0.0, waiting);
    const double second = std::accumulate(samples.end() - half, samples.end(), 0.0, waiting);
    return (second - first) / static_cast<double>(half) > static_cast<double>(queue_max) / 10;
}

// The first row of the table is that of first reports.
uint64_t first_reports(const Totals& totals) { return given_out().front().counted(totals); }

// Whether more came after publishing had ended than an idle sleep explains. A queue may swallow all events of a short
// period without refusing one, and without the log nobody sees how long it is.
// The whole period is looked at, from the account before it to the one after it.
bool ends_late(const LoadMeasures& measures, const Account& before, const Account& after,
               const QueueSettings& settings) {
    // What had been counted when publishing ended is not late.
    const uint64_t reports = first_reports(after.totals) - first_reports(before.totals) - measures.reports;
    const uint64_t traces =
        after.totals.sum(&KindFigures::traces) - before.totals.sum(&KindFigures::traces) - measures.traces;
    // Events that come in during one sleep of a worker.
    const double in_a_sleep = measures.asked * Seconds(settings.idle_sleep).count();
    return static_cast<double>(std::max(reports, traces)) >
           static_cast<double>(settings.queue_max) / 10 + 2 * in_a_sleep;
}

// What was counted between two moments at which nothing ran. The plug-in's own figures are those of its reports.
// Without the log the figures of the plug-in's reports take its place.
void count(LoadMeasures& measures, const Account& before, const Account& after) {
    const auto since = [&](Figure figure) { return after.totals.sum(figure) - before.totals.sum(figure); };
    const auto reported = [&](const char* key) { return after.reports.figure(key) - before.reports.figure(key); };
    measures.log = after.log;
    measures.in = since(&KindFigures::in);
    measures.refused = after.log ? since(&KindFigures::queue_full) : reported("eventQueueOverflowCount");
    measures.filtered = since(&KindFigures::filtered);
    measures.dropped = since(&KindFigures::dropped);
    measures.begun = after.log ? since(&KindFigures::begun) : reported("eventQueueTotalCount");
    measures.traces_ended = after.log ? static_cast<uint64_t>(ended_traces(after.totals) - ended_traces(before.totals))
                                      : since(&KindFigures::traces);
    measures.on_bus = after.bus.delivered + after.bus.sent - before.bus.delivered - before.bus.sent;
}

// Processor times grow while the threads live.
ThreadTimes difference(const ThreadTimes& after, const ThreadTimes& before) {
    return {after.process - before.process, after.alarm_worker - before.alarm_worker,
            after.trace_worker - before.trace_worker, after.bus_thread - before.bus_thread};
}

}  // namespace

// One in twenty may be missing: the last events of a period are on their way when it ends.
bool LoadMeasures::kept_pace() const { return asked == 0 || in_rate() > 0.95 * asked; }

bool LoadEnd::closes() const {
    return wrong_calls == 0 && std::ranges::all_of(checks, [](const Check& check) { return check.holds(); });
}

// A picture that cannot be drawn is said before anything is loaded.
LoadRun::LoadRun(const LoadOptions& options)
    // The meter needs to know how many mixtures there are.
    : options_(options), meter_(options.threads), folder_(options.root, options.settings) {
    if (!options_.plot.empty()) plot_.emplace(options_.plot);
}

// Without the stand-ins' counts there is no account. The settings are read from the log in any case.
// After this the plug-in runs, and nothing is on its way.
void LoadRun::start() {
    prepare_log();
    session_.emplace(folder_, *this);
    if (session_->start() != 0) {
        const Totals totals = session_->account().totals;
        throw Failure("the plug-in does not start; the last error in its log is \"{}\"; zelhost status tells more",
                      totals.last_errors[1]);
    }
    for (const std::string& sentence : session_->unknown())
        throw Failure("a load needs the stand-ins for its account: {}", sentence);
    // The settings line came during the start.
    end_.settings = meter_.settings();
    if (options_.no_log) session_->leave_log();
    // The memory that the plug-in takes at rest.
    end_.resident_before = resident_kib(Trim::yes);
}

// The first period makes the threads, which later ones use again: each alert is to have a number of its own.
// Returns when the time is over or when a signal has come. The threads stand still then.
void LoadRun::publish(double per_second, std::chrono::milliseconds time) {
    const Pace pace{.per_second = per_second};
    if (!load_) {
        load_.emplace(*session_, LoadPlan{.events = options_.events, .publishers = options_.threads, .pace = pace},
                      &meter_.due_times);
    } else {
        load_->set_pace(pace);
        load_->resume();
    }
    // A signal ends the sleep.
    end_.stopped |= stop_signal_.sleep(time);
    // Figures are exact only when no thread publishes.
    load_->pause();
}

// Without the log quiet is the only sign of the end, and the plug-in says only in a report what it refused.
// Both ways to wait return early when the longest wait is over or a signal has come.
void LoadRun::settle() {
    // The wait is bounded, because the plug-in may never come to rest.
    const auto deadline = Clock::now() + options_.max_wait;
    const auto pause = [&](const Session::Open&) {
        if (Clock::now() < deadline && !stop_signal_.sleep(kSettleStep)) return true;
        end_.stopped |= stop_signal_.requested();
        return false;
    };
    if (options_.no_log) {
        // A worker that sleeps gives no sign. So the quiet time is longer than its sleep.
        end_.settled &= session_->wait_until_idle(true, end_.settings.idle_sleep + kQuiet, pause);
        session_->collect();
    } else {
        end_.settled &= session_->wait_until_settled({}, pause);
    }
}

// On the ticker's thread.
// A sample is taken at each tick, and one line is shown.
void LoadRun::tick(double share_done) {
    constexpr size_t kBar = 20;
    // The ticker's thread is the only one that takes samples while it lives.
    const LoadSample sample = meter_.sample(session_->account());
    // The part of the bar that is filled.
    const auto full = static_cast<size_t>(std::min(share_done, 1.0) * kBar);
    console::progress(fmt::format("[{:<{}}] {:.0f} s  in {}  reports {}  traces {}  refused {}  waiting {}",
                                  std::string(full, '#'), kBar, sample.at, sample.in, sample.reports, sample.traces,
                                  sample.refused,
                                  sample.inbox + sample.event_queue + sample.trc_queue + sample.delay_queue));
}

// The share of the time is that of publishing; the wait behind it shows a full bar.
// The measures are those of this period alone, although the session and the threads live on.
LoadMeasures LoadRun::measure(double per_second, std::chrono::milliseconds time) {
    // The moments before and after are what the differences are made of.
    const Account before = session_->account();
    const ThreadTimes times = meter_.times();
    const int64_t publishers_time = load_ ? load_->publishers_cpu_ns() : 0;
    LoadMeasures measures;
    measures.asked = per_second;
    const double busy = machine_busy_seconds();
    meter_.begin();
    meter_.sample(before);
    const auto begin = Clock::now();
    // The ticker ends with this block. The samples outside of it are taken by the main thread.
    {
        const Ticker ticker(std::max<std::chrono::milliseconds>(kShortestTick, time / kMostTicks),
                            [&] { tick(Seconds(Clock::now() - begin) / time); });
        publish(per_second, time);
        // The time that publishing really took, which is a little more than was asked for.
        measures.seconds = Seconds(Clock::now() - begin).count();
        // What has come by now came while events were published.
        const Totals totals = session_->account().totals;
        measures.reports = first_reports(totals) - first_reports(before.totals);
        measures.traces = totals.sum(&KindFigures::traces) - before.totals.sum(&KindFigures::traces);
        measures.grows = grows(meter_.samples(), end_.settings.queue_max, !options_.no_log);
        settle();
    }
    console::progress("");
    const Account after = session_->account();
    meter_.sample(after);
    count(measures, before, after);
    measures.grows |= ends_late(measures, before, after, end_.settings);
    measures.times = difference(meter_.times(), times);
    const double own = static_cast<double>(measures.times.process) / 1e9;
    // What all programs used, less what this process used.
    measures.others = std::max(machine_busy_seconds() - busy - own, 0.0) / Seconds(Clock::now() - begin).count();
    measures.publishers_time = load_->publishers_cpu_ns() - publishers_time;
    measures.published_late = load_->latest();
    measures.latencies = meter_.latencies();
    measures.queues = meter_.queues();
    measures.backlog = meter_.backlog();
    measures.samples = meter_.samples();
    // The highest of all samples.
    for (const LoadSample& sample : measures.samples) {
        measures.inbox = std::max(measures.inbox, sample.inbox);
        end_.resident_peak = std::max(end_.resident_peak, sample.resident_kib);
    }
    return measures;
}

// What was released after the trace module was unloaded matters only when the stop came under load.
// The plug-in ends here. After this the account does not change any more.
void LoadRun::stop() {
    end_.resident_after = resident_kib(Trim::yes);
    end_.load_after = load_average();
    end_.wrong_calls = load_->wrong_answers();
    // The publishers end first, so that nothing comes in while the plug-in stops.
    load_.reset();
    // The last report. Without the log it was collected when the load had settled.
    if (end_.settled && !options_.no_log) session_->collect();
    const uint64_t outlived = session_->stop();
    end_.account = session_->account();
    end_.checks = check_account(end_.account, {.settled = end_.settled,
                                               .partial_results = partial_results(options_.settings),
                                               .longest_event_queue = meter_.longest_event_queue(),
                                               .outlived = outlived});
}

// The result comes before what is wrong with it. A load that a signal ended has shown what it could.
// The exit code tells the first thing that is wrong.
ExitCode LoadRun::run() {
    end_.load_before = load_average();
    start();
    if (options_.find_capacity)
        find_capacity();
    else
        end_.measures = measure(options_.rate, options_.seconds > 0ms ? options_.seconds : kUsual);
    stop();
    print(options_.json ? load_json(options_, end_) : load_text(options_, end_));
    if (plot_) plot_->draw(end_, load_heading(options_, end_));
    if (!end_.closes()) {
        console::message("the account does not close, see the lines that begin with WRONG or the member \"failed\"");
        return kFailed;
    }
    if (!end_.settled && !end_.stopped) {
        console::say("stopping: not all has come to its end after {} s; --max-wait sets the longest wait",
                     options_.max_wait.count());
        return kMaxWaitPassed;
    }
    if (options_.find_capacity && !end_.capacity && !end_.stopped) {
        console::message(
            "even the lowest rate was too high; see the steps of the search, and what other programs used");
        return kFailed;
    }
    return kDone;
}

}  // namespace zelhost
