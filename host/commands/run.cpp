// The run itself: its steps, its waits and its summary. The lines of the script are played in run_script.cpp, what
// comes back and what is shown meanwhile is in run_live.cpp, the options are in run_options.cpp.
#include "host/commands/run.h"

#include <unistd.h>

#include <algorithm>

#include "host/lib/account_json.h"
#include "host/lib/account_text.h"
#include "host/lib/console.h"
#include "host/lib/failure.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A run that is over at once shows no progress.
// A short script would only flicker.
constexpr auto kProgressAfter = 1s;
constexpr auto kProgressStep = 200ms;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Blank lines and lines that begin with #.
// Such a line is counted and not played.
bool is_comment(std::string_view line) {
    const size_t first = line.find_first_not_of(" \t\r");
    return first == std::string_view::npos || line[first] == '#';
}

}  // namespace

// --- the steps of a run ---

// First of all: a wrong folder is said before a file is written.
// Owns a copy of the folder when settings were given.
void Run::find_agent() { folder_.emplace(options_.root, options_.settings); }

// All before anything is loaded, so that a name that is wrong costs no start of the plug-in. The metrics are there from
// now on, at zero.
void Run::open_files() {
    // An output that ends stops the run in the same way as a signal.
    output_.emplace(options_.output, options_.limit, [this] { stop_signal_.request(); });
    input_.emplace(options_.input, options_.follow ? LineReader::Mode::follow : LineReader::Mode::to_the_end,
                   stop_signal_);
    if (!options_.sink.address.empty()) sink_.emplace(options_.sink, agent_root(options_.root));
    if (!options_.metrics.empty())
        metrics_.emplace(options_.metrics).replace(metrics_text(Account{}, progress_of_run()));
    if (!options_.record.empty()) recorder_.emplace(options_.record, head_of(*folder_, getenv("agentid")));
    if (options_.input == "-" && isatty(STDIN_FILENO) == 1)
        console::say("reading events from the terminal, one a line; Ctrl-D ends, zelhost run --help shows their form");
}

// The recorder must be in place before the plug-in asks its first question.
void Run::load() {
    if (recorder_) outside_.emplace(folder_->plugin(), *recorder_);
    session_.emplace(*folder_, *this);
}

// A start that fails has said why in the log, and only there: its last errors are repeated for the reader. What cannot
// be known is said here, once, because only a start shows whether the trace module counts. The log would repeat with
// each message that there is no agent id.
// Returns when the plug-in runs and the ticker shows how it goes.
void Run::start() {
    const int answer = session_->start();
    const Totals totals = session_->account().totals;
    if (answer != 0)
        throw Failure("plugin_init answered {}; the log ({}) ends with the errors: {} / {}", answer, log_place_,
                      totals.last_errors[0], totals.last_errors[1]);
    started_ = true;
    for (const std::string& sentence : session_->unknown()) console::message(sentence);
    if (getenv("agentid") == nullptr)
        console::say("advice: messages carry the agent id \"0\"; agentid=ID in the environment sets another");
    show_from_now_on();
}

// A line that cannot be understood is skipped and counted, so that the rest of a long script still runs. An output that
// has ended ends the input, too: there is no point in going on.
// The main thread reads the script and plays it, one line after the other.
void Run::play_input() {
    auto shown = Clock::now() + kProgressAfter;
    std::string_view line;
    while (!max_wait_passed_ && input_->next(line)) {
        // A reader of the progress or of the metrics sees the line at hand.
        lines_read_ = input_->number();
        // Only the first line can have the mark.
        if (lines_read_ == 1 && line.starts_with(kByteOrderMark)) line.remove_prefix(kByteOrderMark.size());
        if (!is_comment(line)) {
            try {
                play_line(line);
            } catch (const Failure& e) {
                ++lines_skipped_;
                console::say("{}, line {} skipped: {}", options_.input == "-" ? "standard input" : options_.input,
                             input_->number(), e.what());
            }
        }
        // The clock is looked at once a line. That costs little beside an event.
        const auto now = Clock::now();
        if (now < shown) continue;
        shown = now + kProgressStep;
        const int percent = input_->percent();
        progress(
            fmt::format("line {}{}", input_->number(), percent < 0 ? std::string() : fmt::format(", {} %", percent)));
    }
    progress("");
}

// In a reset period the trace module is not loaded, and no trace can end.
void Run::wait_for_the_rest() {
    const bool reset_open = session_->reset_open();
    if (reset_open && session_->account().totals.waiting_traces > 0)
        console::say("the input ends in a reset period: waiting traces are not waited for");
    if (!max_wait_passed_) wait_until_idle(!reset_open);
}

// The first takes the trace costs over, the second reports them.
// Without the manager's stand-in nobody collects.
void Run::collect_last_reports() {
    if (!session_->can_collect()) return;
    session_->collect();
    session_->collect();
}

// Whatever is still on its way is drained by the session.
void Run::stop() {
    // The session is missing when an earlier step has failed.
    if (session_) session_->stop();
}

// A record that lacks something must not look like one that is whole.
// The plug-in has stopped, so nothing asks the recorder any more.
void Run::end_record() {
    outside_.reset();
    if (recorder_) recorder_->finish();
}

// After the last event, before the last figures.
// Its wait is bounded by itself.
void Run::close_sink() {
    if (sink_) sink_->close();
}

// After the bus has come to rest, so that nothing is written any more. An output that nobody reads any more is no
// failure: its reader has what it wanted.
void Run::check_output() {
    if (output_ && output_->state() == Output::State::failed) throw Failure("{}", output_->error());
}

// Of several reasons the first counts.
// The text is for the summary, in both of its forms.
const char* Run::how_it_ended() const {
    if (failed_) return "failed";
    if (output_->state() == Output::State::limit_reached) return "ended by --limit";
    if (output_->state() == Output::State::closed) return "ended by its reader";
    if (max_wait_passed_) return "ended by --max-wait";
    return stop_signal_.requested() ? "stopped by a signal" : "done";
}

// The session still has its libraries here, and can tell what they count. Without a start there is nothing to sum up,
// and the failure has been said.
// The summary goes to standard error, because standard output holds the lines.
void Run::sum_up() {
    if (!started_ || options_.summary == Summary::none) return;
    // The last account of the run. It does not change any more.
    const Account account = session_->account();
    const std::chrono::duration<double> took = Clock::now() - begin_;
    if (options_.summary == Summary::json) {
        RunEnd end{how_it_ended(), took.count(), lines_read_, lines_skipped_, output_->shown(), log_place_, {}};
        if (sink_) end.sink = sink_->account();
        return console::block(account_json(account, end, session_->can_collect()));
    }
    std::string text = fmt::format("zelhost: {} after {:.1f} s; {} lines read, {} skipped; log: {}", how_it_ended(),
                                   took.count(), lines_read_.load(), lines_skipped_.load(), log_place_);
    if (account.log) text += fmt::format(" ({} errors, {} warnings)", account.totals.errors, account.totals.warnings);
    // After an end under load the log does not name all that was discarded.
    text += "\n" + account_text(account, cut_short() ? End::under_load : End::quiet);
    if (session_->can_collect()) text += statistics_text(account);
    if (sink_) text += sink_text(sink_->account());
    console::block(text + leftover_text(account));
}

// The libraries are closed before the copy of the folder goes.
void Run::unload() { session_.reset(); }

// The folder that the libraries were loaded from.
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
    {"stop the plug-in", &Run::stop},         {"end the record", &Run::end_record},
    {"close the sink", &Run::close_sink},     {"write the last figures", &Run::end_showing},
    {"write the output", &Run::check_output}, {"sum up", &Run::sum_up},
    {"unload the libraries", &Run::unload},   {"remove the temporary agent folder", &Run::remove_copy},
};

// A Failure says all by itself. Any other exception, as of the file system, gets the name of the step.
// The step's exception ends here. The run goes on with the teardown.
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
// The first list ends at the first failure, the second is walked to its end.
ExitCode Run::run() {
    std::ranges::all_of(kSteps, [this](const Step& step) { return take(step); });
    for (const Step& step : kTeardown) take(step);
    if (failed_) return kFailed;
    if (max_wait_passed_) return kMaxWaitPassed;
    return lines_skipped_ > 0 ? kLinesSkipped : kDone;
}

// The longest wait holds for each wait of a run. The step is short against the quiet time that is waited for.
// Looks often enough to end soon after the quiet time, and seldom enough to cost nothing.
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
            progress(fmt::format("waiting for {} traces, at most {} s", open.traces,
                                 std::chrono::ceil<std::chrono::seconds>(deadline - now).count()));
        return !stop_signal_.sleep(step);
    });
    progress("");
}

}  // namespace zelhost
