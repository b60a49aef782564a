#include "host/load/meter.h"

#include <pthread.h>

#include <algorithm>
#include <charconv>

#include "host/lib/alert.h"
#include "host/load/machine.h"
#include "host/load/process_memory.h"

namespace zelhost {
namespace {

// The share of alerts that are quicker than the time that a sample calls slow.
constexpr double kSlow = 0.99;

// The clock of a thread can be read from any thread, as long as that thread lives.
clockid_t clock_of_this_thread() {
    clockid_t clock = CLOCK_THREAD_CPUTIME_ID;
    pthread_getcpuclockid(pthread_self(), &clock);
    return clock;
}

// 0 for a clock that is not there.
int64_t time_of(std::optional<clockid_t> clock) {
    timespec time{};
    if (!clock || clock_gettime(*clock, &time) != 0) return 0;
    return time.tv_sec * 1'000'000'000L + time.tv_nsec;
}

// 0 when the name is not in the text.
uint64_t number_behind(std::string_view text, std::string_view name) {
    uint64_t number = 0;
    if (const size_t at = text.find(name); at != std::string_view::npos)
        std::from_chars(text.data() + at + name.size(), text.data() + text.size(), number);
    return number;
}

// The first row of the table is that of first reports.
uint64_t first_reports(const Totals& totals) { return given_out().front().counted(totals); }

}  // namespace

void Meter::begin() {
    const std::lock_guard lock(mutex_);
    // The longest event queue and the settings stay: they are of the whole session. Alerts that are
    // on their way stay noted as well, and count when their reports come.
    begin_ = Clock::now();
    latencies_ = {};
    since_sample_ = {};
    longest_since_sample_ = 0;
    queues_ = {};
    backlog_ = {};
    pairs_seen_ = 0;
    samples_.clear();
}

void Meter::on_log_line(const LogLine& line) {
    const std::lock_guard lock(mutex_);
    // A size counts for the peaks since the begin, for the next sample, and for the whole session.
    QueuePeaks told;
    if (told.line(line)) {
        queues_.line(line);
        longest_since_sample_ = std::max(longest_since_sample_, told.event);
        longest_event_queue_ = std::max(longest_event_queue_, told.event);
        return;
    }
    // The plug-in logs its settings once at each start.
    if (line.body.starts_with(kSettingsText))
        settings_ = {number_behind(line.body, kSettingsText),
                     std::chrono::milliseconds(number_behind(line.body, "interval:"))};
    backlog_.line(line, Clock::now());
}

// First reports alone: a finished trace has the GUID, too.
void Meter::on_event(const ST_PB_EVENT& event) {
    // The time is taken first. Waiting for a lock must not count as latency.
    const auto now = Clock::now();
    if (event.uEventId != event_id::first_report || event.pszGuid == nullptr) return;
    // DueTimes has a lock of its own, which is never taken together with this one.
    const auto due = due_times.take(guid_number(event.pszGuid));
    const std::lock_guard lock(mutex_);
    if (!bus_thread_) bus_thread_ = clock_of_this_thread();
    if (!due) return;
    const auto latency = std::chrono::duration_cast<Histogram::Microseconds>(now - *due);
    latencies_.add(latency);
    since_sample_.add(latency);
}

LoadSample Meter::sample(const Account& account) {
    const Totals& totals = account.totals;
    // The trc queue has no line of its own. What waits for a trace and was not put off is in it.
    const int64_t in_trc_queue = account.left.traces - as_signed(totals.put_off_traces);
    LoadSample sample{.in = totals.sum(&KindFigures::in),
                      .reports = first_reports(totals),
                      .traces = totals.sum(&KindFigures::traces),
                      .refused = totals.sum(&KindFigures::queue_full),
                      .shed = totals.sum(&KindFigures::filtered) + totals.sum(&KindFigures::dropped),
                      .inbox = account.bus.waiting,
                      .trc_queue = static_cast<uint64_t>(std::max<int64_t>(in_trc_queue, 0)),
                      .delay_queue = totals.put_off_traces,
                      .resident_kib = resident_kib(Trim::no)};
    // The account was made before. What comes in between is in the next sample.
    const std::lock_guard lock(mutex_);
    sample.at = std::chrono::duration<double>(Clock::now() - begin_).count();
    // Between two samples the queue may have grown and shrunk. From here on the longest is counted
    // anew, beginning with what is in the queue now.
    sample.event_queue = std::exchange(longest_since_sample_, queued(totals));
    queues_.trc = std::max(queues_.trc, sample.trc_queue);
    queues_.delay = std::max(queues_.delay, sample.delay_queue);
    if (since_sample_.count() > 0) {
        sample.median = since_sample_.quantile(0.5);
        sample.slow = since_sample_.quantile(kSlow);
        sample.slowest = since_sample_.highest();
        since_sample_ = {};
    }
    // A pair is shown once, in the first sample after it was complete.
    if (std::exchange(pairs_seen_, backlog_.sums().count) != backlog_.sums().count) sample.backlog = backlog_.last();
    samples_.push_back(sample);
    return sample;
}

Histogram Meter::latencies() const {
    const std::lock_guard lock(mutex_);
    return latencies_;
}

Backlog::Sums Meter::backlog() const {
    const std::lock_guard lock(mutex_);
    return backlog_.sums();
}

QueuePeaks Meter::queues() const {
    const std::lock_guard lock(mutex_);
    return queues_;
}

std::vector<LoadSample> Meter::samples() const {
    const std::lock_guard lock(mutex_);
    return samples_;
}

uint64_t Meter::longest_event_queue() const {
    const std::lock_guard lock(mutex_);
    return longest_event_queue_;
}

QueueSettings Meter::settings() const {
    const std::lock_guard lock(mutex_);
    return settings_;
}

ThreadTimes Meter::times() const {
    const std::lock_guard lock(mutex_);
    return {time_of(CLOCK_PROCESS_CPUTIME_ID), thread_time_ns("zelreshdl_alarm"), thread_time_ns("zelreshdl_trc"),
            time_of(bus_thread_)};
}

}  // namespace zelhost
