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

constexpr auto kFullPause = 1ms;
constexpr auto kTick = 200ms;
constexpr uint64_t kTicksOfMetrics = 5;  // once a second

// As the logger reads it.
int level_named(const std::string& name) {
    const auto* const found = std::ranges::find(kLogLevels, name);
    return found == std::end(kLogLevels) ? ZEL_LOG_INFO : static_cast<int>(found - kLogLevels);
}

int descriptor_of(const std::string& output) { return output == "-" ? STDOUT_FILENO : -1; }

}  // namespace

Run::Run(const RunOptions& options)
    : options_(options),
      pretty_lines_(Paint(options.color, descriptor_of(options.output)), descriptor_of(options.output)),
      lines_(options.pretty ? static_cast<const EventLines&>(pretty_lines_) : json_lines_),
      status_shown_(options.pretty && isatty(STDERR_FILENO) == 1) {}

// The logger reads these at its first line. It would say nothing of a file that cannot be written.
//
// A log that goes to standard error is written by this program, if the logger has a tap: its lines do not run into the
// status line then, and advice is given once instead of with each message.
void Run::prepare_log() {
    if (!options_.log.empty()) {
        if (!std::ofstream(options_.log)) throw Failure("cannot write the log {}: {}", options_.log, strerror(errno));
        setenv("ZEL_LOG_FILE", options_.log.c_str(), 1);
    }
    const char* const file = getenv("ZEL_LOG_FILE");
    if (!options_.log_level.empty()) setenv("ZEL_LOG_LEVEL", options_.log_level.c_str(), 1);
    setenv("ZEL_LOG_LEVEL", options_.log.empty() ? "warn" : "debug", 0);
    log_place_ = fmt::format("{}, level {}", file == nullptr ? "standard error" : file, getenv("ZEL_LOG_LEVEL"));
    if (file != nullptr || Library(folder_->root() / "lib/liblumutil.so").symbol("zel_log_set_tap") == nullptr) return;
    console_log_level_ = level_named(getenv("ZEL_LOG_LEVEL"));
    setenv("ZEL_LOG_FILE", "/dev/null", 1);
}

// --- what comes back ---

// These run on the threads that Client names, while the main thread plays or waits. Output takes lines from any thread.
// It is made before the session and so is there for all of them.
void Run::on_input(const Input& input) {
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
    if (recorder_)
        recorder_->send(enqueue);
    else
        enqueue();
}

void Run::on_log_line(const LogLine& line) {
    if (recorder_) recorder_->log_line(line);
    if (line.level <= console_log_level_ && !line.advice)
        console::block(fmt::format("{} {}\n", local_time(true), line.text));
    if (line.row == nullptr || !options_.filter.wants_the_rest()) return;
    if (const std::string remark = lines_.remark(line); !remark.empty()) output_->remark(remark);
}

void Run::on_event(MbFrame::IEvent&, const ST_PB_EVENT& record) {
    const std::lock_guard lock(showing_);
    if (recorder_) recorder_->event(record);
    if (options_.filter.wants(record)) output_->show(lines_.event(record));
}

void Run::on_memory_check(const ST_MEM_DETECT_INFO& info) {
    const std::lock_guard lock(showing_);
    if (recorder_) recorder_->memory_check(info);
    if (options_.filter.wants_memory_check()) output_->show(lines_.memory_check(info));
}

void Run::on_answer(int code, uint32_t context, const char* buffer, uint32_t size) {
    const std::lock_guard lock(showing_);
    if (recorder_) recorder_->answer(code, context, buffer, size);
    if (options_.filter.wants_answer(buffer, size)) output_->show(lines_.answer(code, context, buffer, size));
}

void Run::on_report(std::string_view module, int32_t result, std::string_view text) {
    if (result != 1) console::say("{} gave no report; the log says why", module);
    const bool shown = print_reports_ && !text.empty() && options_.filter.wants_the_rest();
    const std::lock_guard lock(showing_);
    if (recorder_) recorder_->report(module, result, text, shown);
    if (shown) output_->show(lines_.report(module, text));
}

// A signal ends the wait for room on the bus, and with it the run.
bool Run::pause_publishing() { return !stop_signal_.sleep(kFullPause); }

// --- how it goes ---

RunProgress Run::progress_of_run() const {
    const auto age = std::chrono::steady_clock::now() - begin_;
    const std::chrono::duration<double> began = std::chrono::system_clock::now().time_since_epoch() - age;
    return {.start_time = began.count(),
            .running = running_,
            .lines = lines_read_,
            .skipped = lines_skipped_,
            .shown = output_->shown()};
}

void Run::progress(const std::string& text) const {
    if (!status_shown_) console::progress(text);
}

// Before the first event is published.
void Run::show_from_now_on() {
    const Account account = session_->account();
    pretty_lines_.set_tracing(account.trace_module && !account.totals.tracing_off);
    running_ = true;
    ticker_.emplace(kTick, [this] { tick(); });
}

// Metrics that cannot be replaced are said once; the next second tries again.
void Run::tick() {
    output_->look();
    const Account account = session_->account();
    if (status_shown_) {
        const std::string text = status_line_.text(std::chrono::steady_clock::now(), lines_read_, account);
        console::progress(text.substr(0, console::columns(STDERR_FILENO) - 1));
    }
    if (!metrics_ || ++ticks_ % kTicksOfMetrics != 0) return;
    try {
        metrics_->replace(metrics_text(account, progress_of_run()));
        metrics_failed_ = false;
    } catch (const Failure& e) {
        if (!std::exchange(metrics_failed_, true)) console::message(e.what());
    }
}

// The figures of the end are exact, since nothing runs any more.
void Run::end_showing() {
    if (!running_) return;
    ticker_.reset();
    running_ = false;
    console::progress("");
    if (metrics_) metrics_->replace(metrics_text(session_->account(), progress_of_run()));
}

}  // namespace zelhost
