// What a run shows while it goes on: the events, the log where a person reads it, the status line and the metrics.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "host/commands/run.h"
#include "host/lib/console.h"
#include "host/lib/failure.h"
#include "host/lib/local_time.h"
#include "platform/zel_support.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;

// How long a full bus is waited for before it is asked again.
constexpr auto kFullPause = 1ms;
// How often the ticker looks.
constexpr auto kTick = 200ms;
constexpr uint64_t kTicksOfMetrics = 5;  // once a second

// As the logger reads it.
// A name that is unknown counts as info, as in the logger.
int level_named(const std::string& name) {
    const auto* const found = std::ranges::find(kLogLevels, name);
    return found == std::end(kLogLevels) ? ZEL_LOG_INFO : static_cast<int>(found - kLogLevels);
}

// Only standard output can be a terminal here.
int descriptor_of(const std::string& output) { return output == "-" ? STDOUT_FILENO : -1; }

}  // namespace

// Painted lines and their width depend on where the output goes.
Run::Run(const RunOptions& options)
    : options_(options),
      pretty_lines_(Paint(options.color, descriptor_of(options.output)), descriptor_of(options.output)),
      lines_(options.pretty ? static_cast<const EventLines&>(pretty_lines_) : json_lines_),
      status_shown_(options.pretty && isatty(STDERR_FILENO) == 1) {}

// The logger reads these at its first line. It would say nothing of a file that cannot be written.
//
// A log that goes to standard error is written by this program, if the logger has a tap: its lines do not run into the
// status line then, and advice is given once instead of with each message.
// Set before the libraries are loaded.
void Run::prepare_log() {
    if (!options_.log.empty()) {
        if (!std::ofstream(options_.log)) throw Failure("cannot write the log {}: {}", options_.log, strerror(errno));
        setenv("ZEL_LOG_FILE", options_.log.c_str(), 1);
    }
    // The environment may name a file by itself.
    const char* const file = getenv("ZEL_LOG_FILE");
    if (!options_.log_level.empty()) setenv("ZEL_LOG_LEVEL", options_.log_level.c_str(), 1);
    setenv("ZEL_LOG_LEVEL", options_.log.empty() ? "warn" : "debug", 0);
    log_place_ = fmt::format("{}, level {}", file == nullptr ? "standard error" : file, getenv("ZEL_LOG_LEVEL"));
    // Opened for a moment only: the session opens it again.
    if (file != nullptr || Library(folder_->root() / "lib/liblumutil.so").symbol("zel_log_set_tap") == nullptr) return;
    console_log_level_ = level_named(getenv("ZEL_LOG_LEVEL"));
    setenv("ZEL_LOG_FILE", "/dev/null", 1);
}

// --- what comes back ---

// These run on the threads that Client names, while the main thread plays or waits. Output takes lines from any thread.
// It is made before the session and so is there for all of them.
void Run::on_input(const Input& input) {
    // The recorder wants to know of all acts. Without a recorder nothing is to be done.
    if (recorder_) recorder_->input(input);
}

void Run::on_input_done(const Input& input) {
    if (recorder_) recorder_->input_done(input);
}

void Run::on_delivery() {
    if (recorder_) recorder_->delivery();
}

void Run::on_delivered() {
    if (recorder_) recorder_->delivered();
}

void Run::on_send(const std::function<void()>& enqueue) {
    // The recorder keeps the order in which events are sent.
    if (recorder_)
        recorder_->send(enqueue);
    else
        enqueue();
}

// The logger's thread holds the logger's lock, so this must be quick.
void Run::on_log_line(const LogLine& line) {
    if (recorder_) recorder_->log_line(line);
    // Advice is said once by the run itself.
    if (line.level <= console_log_level_ && !line.advice)
        console::block(fmt::format("{} {}\n", local_time(true), line.text));
    // A line that ends an event may be worth a line of the output.
    if (line.row == nullptr || !options_.filter.wants_the_rest()) return;
    if (const std::string remark = lines_.remark(line); !remark.empty()) output_->remark(remark);
}

// The bus thread calls. The event stays valid during the call, and the sink takes a copy.
void Run::on_event(MbFrame::IEvent&, const ST_PB_EVENT& record) {
    // Record, sink and output get events in the same order.
    const std::lock_guard lock(showing_);
    if (recorder_) recorder_->event(record);
    if (sink_) sink_->hand_over(record);
    if (options_.filter.wants(record)) output_->show(lines_.event(record));
}

void Run::on_memory_check(const ST_MEM_DETECT_INFO& info) {
    // A memory check has no message. The sink publishes its line.
    const std::lock_guard lock(showing_);
    if (recorder_) recorder_->memory_check(info);
    if (sink_) {
        std::string line = json_lines_.memory_check(info);
        line.pop_back();  // the end of the line
        sink_->hand_over(event_id::mem_detect, line);
    }
    if (options_.filter.wants_memory_check()) output_->show(lines_.memory_check(info));
}

// The trace worker or the main thread calls.
void Run::on_answer(int code, uint32_t context, const char* buffer, uint32_t size) {
    // An answer is no event, so it does not go to the sink.
    const std::lock_guard lock(showing_);
    if (recorder_) recorder_->answer(code, context, buffer, size);
    if (options_.filter.wants_answer(buffer, size)) output_->show(lines_.answer(code, context, buffer, size));
}

void Run::on_report(std::string_view module, int32_t result, std::string_view text) {
    // A module that gave no report says so whether or not lines are shown.
    if (result != 1) console::say("{} gave no report; the log says why", module);
    const bool shown = print_reports_ && !text.empty() && options_.filter.wants_the_rest();
    const std::lock_guard lock(showing_);
    if (recorder_) recorder_->report(module, result, text, shown);
    if (shown) output_->show(lines_.report(module, text));
}

// A signal ends the wait for room on the bus, and with it the run.
bool Run::pause_publishing() { return !stop_signal_.sleep(kFullPause); }

// --- how it goes ---

// The start is told by the time of day, made from the steady clock's age of the run.
RunProgress Run::progress_of_run() const {
    const auto age = std::chrono::steady_clock::now() - begin_;
    const std::chrono::duration<double> began = std::chrono::system_clock::now().time_since_epoch() - age;
    return {.start_time = began.count(),
            .running = running_,
            .lines = lines_read_,
            .skipped = lines_skipped_,
            .shown = output_->shown(),
            .sink = sink_ ? std::optional(sink_->account()) : std::nullopt};
}

// Two kinds of progress would overwrite each other.
void Run::progress(const std::string& text) const {
    if (!status_shown_) console::progress(text);
}

// Before the first event is published.
// The settings are known now, since the plug-in has started.
void Run::show_from_now_on() {
    const Account account = session_->account();
    pretty_lines_.set_tracing(account.trace_module && !account.totals.tracing_off);
    running_ = true;
    ticker_.emplace(kTick, [this] { tick(); });
}

// Metrics that cannot be replaced are said once; the next second tries again.
// The ticker's thread calls. It must not throw, so a failure of the metrics is caught here.
void Run::tick() {
    // A reader that has gone is found even when nothing is written.
    output_->look();
    // One account serves the status line and the metrics.
    const Account account = session_->account();
    if (status_shown_) console::progress(status_line_.text(std::chrono::steady_clock::now(), lines_read_, account));
    if (!metrics_ || ++ticks_ % kTicksOfMetrics != 0) return;
    try {
        metrics_->replace(metrics_text(account, progress_of_run()));
        metrics_failed_ = false;
    } catch (const Failure& e) {
        if (!std::exchange(metrics_failed_, true)) console::message(e.what());
    }
}

// The figures of the end are exact, since nothing runs any more.
// The ticker ends first, because it uses all of this.
void Run::end_showing() {
    if (!running_) return;
    ticker_.reset();
    running_ = false;
    console::progress("");
    if (metrics_) metrics_->replace(metrics_text(session_->account(), progress_of_run()));
}

}  // namespace zelhost
