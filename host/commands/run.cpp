// The run itself: its steps, its waits, its summary and its options. The lines of the script are played in
// run_script.cpp.
#include "host/commands/run.h"

#include <stdlib.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "host/commands/commands.h"
#include "host/lib/account_text.h"
#include "host/lib/console.h"
#include "host/lib/failure.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A run that is over at once shows no progress.
constexpr auto kProgressAfter = 1s;
constexpr auto kProgressStep = 200ms;
constexpr auto kFullPause = 1ms;

// Blank lines and lines that begin with #.
bool is_comment(std::string_view line) {
    const size_t first = line.find_first_not_of(" \t\r");
    return first == std::string_view::npos || line[first] == '#';
}

}  // namespace

// --- what comes back ---

// These four run on the threads that Client names, while the main thread plays or waits. Output takes lines from any
// thread. It is made before the session and so is there for all of them.
void Run::on_event(MbFrame::IEvent&, const ST_PB_EVENT& record) { output_->trace_event(record); }

void Run::on_memory_check(const ST_MEM_DETECT_INFO& info) { output_->memory_check(info); }

void Run::on_answer(int code, uint32_t context, const char* buffer, uint32_t size) {
    output_->callback(code, context, buffer, size);
}

void Run::on_report(std::string_view module, int32_t result, std::string_view text) {
    if (result != 1) console::say("{} gave no report; the log says why", module);
    if (print_reports_ && !text.empty()) output_->report(module, text);
}

// A signal ends the wait for room on the bus, and with it the run.
bool Run::pause_publishing() { return !stop_signal_.sleep(kFullPause); }

// --- the steps of a run ---

// First of all: a wrong folder is said before a file is written.
void Run::find_agent() { folder_.emplace(options_.root, options_.settings); }

// The logger reads these at its first line. It would say nothing of a file that cannot be written.
void Run::prepare_log() {
    if (!options_.log.empty()) {
        if (!std::ofstream(options_.log)) throw Failure("cannot write the log {}: {}", options_.log, strerror(errno));
        setenv("ZEL_LOG_FILE", options_.log.c_str(), 1);
    }
    const char* const file = getenv("ZEL_LOG_FILE");
    if (!options_.log_level.empty()) setenv("ZEL_LOG_LEVEL", options_.log_level.c_str(), 1);
    setenv("ZEL_LOG_LEVEL", options_.log.empty() ? "warn" : "debug", 0);
    log_place_ = fmt::format("{}, level {}", file == nullptr ? "standard error" : file, getenv("ZEL_LOG_LEVEL"));
}

// Both before anything is loaded, so that a name that is wrong costs no start of the plug-in.
void Run::open_files() {
    output_.emplace(options_.output);
    input_.emplace(options_.input, stop_signal_);
    if (options_.input == "-" && isatty(STDIN_FILENO) == 1)
        console::say("reading events from the terminal, one a line; Ctrl-D ends, zelhost run --help shows their form");
}

void Run::load() { session_.emplace(*folder_, *this); }

// A start that fails has said why in the log, and only there: its last errors are repeated for the reader. What cannot
// be known is said here, once, because only a start shows whether the trace module counts.
void Run::start() {
    const int answer = session_->start();
    const Totals totals = session_->account().totals;
    if (answer != 0)
        throw Failure("plugin_init answered {}; the log ({}) ends with the errors: {} / {}", answer, log_place_,
                      totals.last_errors[0], totals.last_errors[1]);
    started_ = true;
    for (const std::string& sentence : session_->unknown()) console::message(sentence);
}

// A line that cannot be understood is skipped and counted, so that the rest of a long script still runs. The output is
// looked at after each line: when nobody reads it any more, there is no point in going on.
void Run::play_input() {
    auto shown = Clock::now() + kProgressAfter;
    std::string_view line;
    while (output_->error().empty() && !max_wait_passed_ && input_->next(line)) {
        if (!is_comment(line)) {
            try {
                play_line(line);
            } catch (const Failure& e) {
                ++lines_skipped_;
                console::say("{}, line {} skipped: {}", options_.input == "-" ? "standard input" : options_.input,
                             input_->number(), e.what());
            }
        }
        const auto now = Clock::now();
        if (now < shown) continue;
        shown = now + kProgressStep;
        const int percent = input_->percent();
        console::progress(
            fmt::format("line {}{}", input_->number(), percent < 0 ? std::string() : fmt::format(", {} %", percent)));
    }
    console::progress("");
}

// In a reset period the trace module is not loaded, and no trace can end.
void Run::wait_for_the_rest() {
    const bool reset_open = session_->reset_open();
    if (reset_open && session_->account().totals.waiting_traces > 0)
        console::say("the input leaves the data store in a reset: traces that wait are not waited for");
    if (!max_wait_passed_) wait_until_idle(!reset_open);
}

// The first takes the trace costs over, the second reports them.
void Run::collect_last_reports() {
    if (!session_->can_collect()) return;
    session_->collect();
    session_->collect();
}

void Run::stop() {
    if (session_) session_->stop();
}

// After the bus has come to rest, so that nothing is written any more.
void Run::check_output() {
    if (output_ && !output_->error().empty()) throw Failure("{}", output_->error());
}

// The session still has its libraries here, and can tell what they count. Without a start there is nothing to sum up,
// and the failure has been said.
void Run::sum_up() {
    if (!started_) return;
    const Account account = session_->account();
    const std::chrono::duration<double> took = Clock::now() - begin_;
    const char* const how = failed_                    ? "failed"
                            : max_wait_passed_         ? "ended by --max-wait"
                            : stop_signal_.requested() ? "stopped by a signal"
                                                       : "done";
    std::string text = fmt::format("zelhost: {} after {:.1f} s; {} lines read, {} skipped; log: {}", how, took.count(),
                                   input_->number(), lines_skipped_, log_place_);
    if (account.log) text += fmt::format(" ({} errors, {} warnings)", account.totals.errors, account.totals.warnings);
    text += "\n" + account_text(account, End::quiet);
    if (session_->can_collect()) text += statistics_text(account);
    console::block(text + leftover_text(account));
}

void Run::unload() { session_.reset(); }

void Run::remove_copy() { folder_.reset(); }

// The first step that fails is the last of these; the teardown follows in any case.
const Run::Step Run::kSteps[] = {
    {"find the agent", &Run::find_agent},
    {"prepare the log", &Run::prepare_log},
    {"open the files", &Run::open_files},
    {"load the agent's libraries", &Run::load},
    {"start the plug-in", &Run::start},
    {"play the input", &Run::play_input},
    {"wait for the rest", &Run::wait_for_the_rest},
    {"collect the last reports", &Run::collect_last_reports},
};
const Run::Step Run::kTeardown[] = {
    {"stop the plug-in", &Run::stop},
    {"write the output", &Run::check_output},
    {"sum up", &Run::sum_up},
    {"unload the libraries", &Run::unload},
    {"remove the temporary agent folder", &Run::remove_copy},
};

// A Failure says all by itself. Any other exception, as of the file system, gets the name of the step.
bool Run::take(const Step& step) {
    try {
        (this->*step.act)();
        return true;
    } catch (const Failure& e) {
        console::message(e.what());
    } catch (const std::exception& e) {
        console::say("cannot {}: {}", step.name, e.what());
    }
    failed_ = true;
    return false;
}

// Of several things that went wrong, the worst decides.
ExitCode Run::run() {
    std::ranges::all_of(kSteps, [this](const Step& step) { return take(step); });
    for (const Step& step : kTeardown) take(step);
    if (failed_) return kFailed;
    if (max_wait_passed_) return kMaxWaitPassed;
    return lines_skipped_ > 0 ? kLinesSkipped : kDone;
}

// The longest wait holds for each wait of a run. The step is short against the quiet time that is waited for.
void Run::wait_until_idle(bool traces) {
    const auto deadline = Clock::now() + options_.max_wait;
    const auto step = std::clamp(options_.idle / 10, 1ms, 50ms);
    session_->wait_until_idle(traces, options_.idle, [&](const Session::Open& open) {
        const auto now = Clock::now();
        if (now >= deadline) {
            max_wait_passed_ = true;
            console::say(
                "stopping: still {} traces open and {} events on the bus after {} s; --max-wait sets the longest wait",
                open.traces, open.events, options_.max_wait.count());
            return false;
        }
        if (open.traces > 0)
            console::progress(fmt::format("waiting for {} traces, at most {} s", open.traces,
                                          std::chrono::ceil<std::chrono::seconds>(deadline - now).count()));
        return !stop_signal_.sleep(step);
    });
    console::progress("");
}

// --- the command line ---

namespace {

constexpr const char* kFooter =
    R"(Input: JSON Lines, one event or action a line; blank lines and lines that begin with # are left out.
  {"event":ID,FORM}   an event with one form of payload: "alert" or "json" (the value's very bytes), "text", "hex",
                      "message" (a vorn_trace_info in JSON form) or "data":null. Event 1281 takes "dns":{...} instead.
  {"alert_type":...}  an alert document by itself is event 1536
  {"do":"sleep","ms":100}  {"do":"wait"}  {"do":"reset_begin"}  {"do":"reset_end"}  {"do":"report"}
  {"do":"config","delay_time":"120000","queue_size":"200"}  {"do":"config","text":"..."}
  {"do":"file_trace","path":"/tmp/x","file_key":"k","kind":1,"context":7}  {"do":"process_trace","data":{...},"context":8}
The plug-in sheds what comes faster than it works; "wait" lets it finish what it has.
Output: JSON Lines, one for each event, callback and wanted report. A summary goes to standard error.)";

// An option that is short for one setting.
struct Shorthand {
    const char* option;
    const char* help;
    Setting setting;  // without its value
};
// The values that are changed most often; their limits are the plug-in's, which takes its default outside of them.
const Shorthand kShorthands[] = {
    {"--not-ready",
     "How often the trace module puts an alert off: zeltrc:standin:not_ready_times",
     {"zeltrc", "standin", "not_ready_times", ""}},
    {"--trace-cost", "How long a trace takes, in ms: zeltrc:standin:cost_ms", {"zeltrc", "standin", "cost_ms", ""}},
    {"--queue-max",
     "Limit of each queue, 50 to 500: zelreshdl:config:queue_max",
     {"zelreshdl", "config", "queue_max", ""}},
    {"--trc-times",
     "Most tries of a trace, 0 to 16, 0 for no traces: zelreshdl:config:trc_times",
     {"zelreshdl", "config", "trc_times", ""}},
};

// Settings do not change the agent folder: the run plays in a copy that has them.
void add_settings(CLI::App& app, RunOptions& options) {
    app.add_option_function<std::vector<std::string>>(
           "--set",
           [&options](const std::vector<std::string>& texts) {
               for (const std::string& text : texts) try {
                       options.settings.push_back(parse_setting(text));
                   } catch (const Failure& e) {
                       throw CLI::ValidationError("--set", e.what());
                   }
           },
           "One value of an ini file, in a temporary copy of the agent folder; FILE is zelreshdl, zeltrc or "
           "zel_pure_mode. May be repeated")
        ->type_name("FILE:SECTION:KEY=VALUE");
    for (const Shorthand& shorthand : kShorthands)
        app.add_option_function<uint32_t>(
               shorthand.option,
               [&options, setting = shorthand.setting](const uint32_t& value) {
                   options.settings.push_back({setting.file, setting.section, setting.key, std::to_string(value)});
               },
               shorthand.help)
            ->type_name("N");
}

// Each help text names its default, because the parser does not know what an empty value stands for.
void add_options(CLI::App& app, RunOptions& options) {
    app.add_option("--root", options.root, "Agent folder; the one that zelhost stands in if not given")
        ->type_name("DIR");
    app.add_option("--input", options.input, "Script to play, - for standard input (default)")->type_name("FILE");
    app.add_option("--output", options.output, "Where the JSON lines go, - for standard output (default)")
        ->type_name("FILE");
    app.add_option("--log", options.log, "The plug-in's log; standard error if not given")->type_name("FILE");
    app.add_option("--log-level", options.log_level, "Default: debug with --log, else warn")
        ->type_name("LEVEL")
        ->check(CLI::IsMember({"error", "warn", "info", "debug"}));
    app.add_option_function<uint32_t>(
           "--idle-ms", [&options](const uint32_t& ms) { options.idle = std::chrono::milliseconds{ms}; },
           "Quiet time after which the pipeline counts as idle (300)")
        ->type_name("N");
    app.add_option_function<uint32_t>(
           "--max-wait", [&options](const uint32_t& s) { options.max_wait = std::chrono::seconds{s}; },
           "Longest wait for open traces, in seconds (180)")
        ->type_name("S");
    add_settings(app, options);
}

}  // namespace

// The options live as long as the action; the parser writes into them before.
Action prepare_run(CLI::App& app) {
    const auto options = std::make_shared<RunOptions>();
    app.footer(kFooter);
    add_options(app, *options);
    return [options] { return Run(*options).run(); };
}

}  // namespace zelhost
