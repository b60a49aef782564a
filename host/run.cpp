#include "run.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <thread>

#include "console.h"
#include "event_kinds.h"
#include "failure.h"
#include "lumutil/log_tap.h"

namespace zel {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t kReportBuffer = 64 * 1024;
constexpr auto kDrainTime = 10s;
constexpr auto kProgressAfter = 1s;
constexpr auto kProgressStep = 200ms;

// --- call-backs; none lets an exception out ---

template <class Act>
void guarded(const char* what, Act act) {
    try {
        act();
    } catch (const std::exception& e) {
        console::say("cannot {}: {}", what, e.what());
    }
}

void on_log_line(void* context, int32_t level, const char* text) {
    guarded("count a log line", [&] { static_cast<Run*>(context)->figures.log_line(level, text); });
}

void on_trace_event(void* context, MbFrame::IEvent* event) {
    guarded("show an event", [&] {
        auto& run = *static_cast<Run*>(context);
        const auto& record = *static_cast<const ST_PB_EVENT*>(event->GetNativeEvent());
        run.figures.sent(record);
        run.output->trace_event(record);
    });
}

void on_memory_check(void* context, MbFrame::IEvent* event) {
    guarded("show a memory check", [&] {
        auto& run = *static_cast<Run*>(context);
        run.figures.memory_check();
        run.output->memory_check(*static_cast<const ST_MEM_DETECT_INFO*>(event->GetNativeEvent()));
    });
}

void on_report(void* context, const char* module, int32_t result, const char* text) {
    auto& [run, print] = *static_cast<std::pair<Run&, bool>*>(context);
    guarded("read a report", [&] {
        if (result != 1) console::say("{} gave no report; the log says why", module);
        if (*text == '\0') return;
        run.reports.add(text);
        if (print) run.output->report(module, text);
    });
}

// A result buffer that is out while the trace module is unloaded belongs to an event on its way through the bus, or to
// a KOV alert whose completion failed, which the plug-in keeps.
int32_t explain_buffer(void* context, const char*) {
    const auto& run = *static_cast<const Run*>(context);
    return run.bus->counts().sending > 0 || run.figures.totals().sum(&KindFigures::not_completed) > 0;
}

// --- the steps of a run ---

void find_agent(Run& run) { run.folder.emplace(run.options.root, run.options.settings); }

// The logger reads these at its first line. It would say nothing of a file that cannot be written.
void prepare_log(Run& run) {
    if (!run.options.log.empty()) {
        if (!std::ofstream(run.options.log))
            throw Failure("cannot write the log {}: {}", run.options.log, strerror(errno));
        setenv("ZEL_LOG_FILE", run.options.log.c_str(), 1);
    }
    const char* const file = getenv("ZEL_LOG_FILE");
    if (!run.options.log_level.empty()) setenv("ZEL_LOG_LEVEL", run.options.log_level.c_str(), 1);
    setenv("ZEL_LOG_LEVEL", run.options.log.empty() ? "warn" : "debug", 0);
    run.log_place = fmt::format("{}, level {}", file == nullptr ? "standard error" : file, getenv("ZEL_LOG_LEVEL"));
    zel_log_set_tap(on_log_line, &run);
}

void open_files(Run& run) {
    run.output.emplace(run.options.output);
    run.input.emplace(run.options.input, run.stop);
    if (run.options.input == "-" && isatty(STDIN_FILENO) == 1)
        console::say("reading events from the terminal, one a line; Ctrl-D ends, zelhost run --help shows their form");
}

void load_bus(Run& run) {
    run.bus.emplace(run.folder->library("liblummb.so"));
    for (const uint32_t id : {kFirstReport, kFinishedTrace, kCredibleReport})
        run.sinks.push_back(run.bus->subscribe(id, on_trace_event, &run));
    run.sinks.push_back(run.bus->subscribe(kMemoryCheck, on_memory_check, &run));
}

// An agent may lack both; without them the host knows less.
void load_counters(Run& run) {
    const auto counts = run.folder->library("libzelcount.so");
    const auto manager = run.folder->library("libzelbpmgr.so");
    if (std::filesystem::exists(counts)) {
        run.trace_counts.emplace(counts);
        run.trace_counts->set_explainer(explain_buffer, &run);
    }
    if (std::filesystem::exists(manager)) run.manager.emplace(manager);
}

void start_plugin(Run& run) {
    run.plugin.emplace(run.folder->plugin());
    run.init_called = true;
    const int answer = run.plugin->init();
    const Totals totals = run.figures.totals();
    if (answer != 0)
        throw Failure("plugin_init answered {}; the log ({}) ends with the errors: {} / {}", answer, run.log_place,
                      totals.last_errors[0], totals.last_errors[1]);
    run.plugin->start();
    run.started = true;
}

bool is_comment(std::string_view line) {
    const size_t first = line.find_first_not_of(" \t\r");
    return first == std::string_view::npos || line[first] == '#';
}

void play_input(Run& run) {
    const auto begin = Figures::Clock::now();
    auto shown = begin + kProgressAfter;
    std::string_view line;
    while (run.output->error().empty() && !run.max_wait_passed && run.input->next(line)) {
        if (!is_comment(line)) {
            try {
                play_line(run, line);
            } catch (const Failure& e) {
                ++run.lines_skipped;
                console::say("{}, line {} skipped: {}", run.options.input == "-" ? "standard input" : run.options.input,
                             run.input->number(), e.what());
            }
        }
        const auto now = Figures::Clock::now();
        if (now < shown) continue;
        shown = now + kProgressStep;
        const int percent = run.input->percent();
        console::progress(fmt::format("line {}{}", run.input->number(),
                                      percent < 0 ? std::string() : fmt::format(", {} %", percent)));
    }
    console::progress("");
}

void wait_for_the_rest(Run& run) {
    if (run.reset_open && run.figures.totals().waiting_traces > 0)
        console::say("the input leaves the data store in a reset: traces that wait are not waited for");
    if (!run.max_wait_passed) wait_until_idle(run, !run.reset_open);
}

// The first takes the trace costs over, the second reports them.
void collect_last_reports(Run& run) {
    if (!run.manager) return;
    collect_report(run, false);
    collect_report(run, false);
}

// --- the teardown, which runs whole whatever happened ---

void stop_plugin(Run& run) {
    if (!run.init_called) return;
    run.plugin->stop();
    run.plugin->uninit();
}

void drain_bus(Run& run) {
    if (!run.bus) return;
    const auto deadline = Figures::Clock::now() + kDrainTime;
    while (run.bus->counts().sending > 0) {
        if (Figures::Clock::now() > deadline) throw Failure("the bus still holds events that were sent");
        std::this_thread::sleep_for(1ms);
    }
    for (const uint64_t sink : run.sinks) run.bus->unsubscribe(sink);
}

void check_output(Run& run) {
    if (run.output && !run.output->error().empty()) throw Failure("{}", run.output->error());
}

void show_summary(Run& run) {
    if (run.started) console::block(summary(run));
}

void take_off_tap(Run&) { zel_log_set_tap(nullptr, nullptr); }

void unload(Run& run) {
    run.plugin.reset();
    if (run.trace_counts) run.trace_counts->set_explainer(nullptr, nullptr);
    run.trace_counts.reset();
    run.manager.reset();
    run.bus.reset();
}

void remove_copy(Run& run) { run.folder.reset(); }

struct Step {
    const char* name;  // "cannot NAME", for a failure that does not say enough itself
    void (*act)(Run& run);
};
constexpr Step kSteps[] = {
    {"find the agent", find_agent},
    {"prepare the log", prepare_log},
    {"open the files", open_files},
    {"load the bus", load_bus},
    {"load what counts and collects", load_counters},
    {"start the plug-in", start_plugin},
    {"play the input", play_input},
    {"wait for the rest", wait_for_the_rest},
    {"collect the last reports", collect_last_reports},
};
constexpr Step kTeardown[] = {
    {"stop the plug-in", stop_plugin},
    {"empty the bus", drain_bus},
    {"write the output", check_output},
    {"sum up", show_summary},
    {"let go of the log", take_off_tap},
    {"unload the libraries", unload},
    {"remove the temporary agent folder", remove_copy},
};

// The log may tell late that an alert was put off, and the trace module's stand-in does not learn which alerts are
// given up: an alert waits where both say so.
uint64_t open_traces(const Run& run) {
    if (!run.trace_counts) return run.figures.totals().waiting_traces;
    const zeltrc_counts counts = run.trace_counts->counts();
    const uint64_t put_off = std::min(counts.waiting, run.figures.put_off_traces());
    return std::max(run.figures.pushed_traces(), counts.running + put_off);
}

bool take(const Step& step, Run& run) {
    try {
        step.act(run);
        return true;
    } catch (const Failure& e) {
        console::message(e.what());
    } catch (const std::exception& e) {
        console::say("cannot {}: {}", step.name, e.what());
    }
    run.failed = true;
    return false;
}

}  // namespace

ExitCode run(const RunOptions& options) {
    Run run(options);
    std::ranges::all_of(kSteps, [&](const Step& step) { return take(step, run); });
    for (const Step& step : kTeardown) take(step, run);
    if (run.failed) return kFailed;
    if (run.max_wait_passed) return kMaxWaitPassed;
    return run.lines_skipped > 0 ? kLinesSkipped : kDone;
}

void wait_until_idle(Run& run, bool traces) {
    const auto deadline = Figures::Clock::now() + run.options.max_wait;
    const auto step = std::clamp(run.options.idle / 10, 1ms, 50ms);
    for (;;) {
        const uint64_t open = traces ? open_traces(run) : 0;
        const lummb_counts bus = run.bus->counts();
        const auto now = Figures::Clock::now();
        if (open == 0 && bus.waiting == 0 && bus.sending == 0 && now - run.figures.last_sign() >= run.options.idle)
            break;
        if (now >= deadline) {
            run.max_wait_passed = true;
            console::say(
                "stopping: still {} traces open and {} events on the bus after {} s; --max-wait sets the longest wait",
                open, bus.waiting + bus.sending, run.options.max_wait.count());
            break;
        }
        if (open > 0)
            console::progress(fmt::format("waiting for {} traces, at most {} s", open,
                                          std::chrono::ceil<std::chrono::seconds>(deadline - now).count()));
        if (run.stop.sleep(step)) break;
    }
    console::progress("");
}

void collect_report(Run& run, bool print) {
    std::pair<Run&, bool> context(run, print);
    run.manager->collect(ZELBPMGR_OWN_THREAD, kReportBuffer, on_report, &context);
}

}  // namespace zel
