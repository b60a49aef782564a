// Measures a load from what a session shows: latencies, queues, predictions and the time of the plug-in's threads.
#pragma once

#include <time.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "host/lib/account.h"
#include "host/load/backlog.h"
#include "host/load/due_times.h"
#include "host/load/histogram.h"
#include "host/load/queue_peaks.h"

namespace zelhost {

// What a load shows at one moment.
// The figures below count events that came in, first reports and chains that went out, events that
// a full queue refused, and alerts or traces that the plug-in dropped on purpose.
struct LoadSample {
    double at = 0;                                                    // seconds since the meter began
    uint64_t in = 0, reports = 0, traces = 0, refused = 0, shed = 0;  // since the session began
    uint64_t inbox = 0;                                               // events that wait on the bus
    uint64_t event_queue = 0, trc_queue = 0, delay_queue = 0;         // the first is the longest since the last sample
    // Of the alerts that were reported since the last sample, if there were any.
    std::optional<Histogram::Microseconds> median{}, slow{}, slowest{};
    std::optional<Backlog::Pair> backlog{};  // likewise: a prediction and what came of it
    uint64_t resident_kib = 0;
};

// Processor time, in nanoseconds.
// Of all threads together, and of three threads of the plug-in; 0 for one that does not run or is
// not known yet.
struct ThreadTimes {
    int64_t process = 0, alarm_worker = 0, trace_worker = 0, bus_thread = 0;
};

// What the settings line of the log says.
struct QueueSettings {
    // The most entries that a queue may hold, from the key queue_max.
    uint64_t queue_max = 0;
    // How long a worker sleeps when its queue is empty.
    std::chrono::milliseconds idle_sleep{0};
};

// Any thread may call any function.
class Meter {
public:
    using Clock = std::chrono::steady_clock;

    // Publishers note in it when an alert was due.
    // It has a lock of its own and may be used without the meter's.
    DueTimes due_times;

    explicit Meter(uint32_t publishers) : due_times(publishers) {}

    // From here on everything is measured anew, but for what belongs to the whole session.
    void begin();

    // For the functions of a Client with such names.
    // Called on the threads that log.
    void on_log_line(const LogLine& line);
    // Called on the bus thread.
    void on_event(const ST_PB_EVENT& event);

    // A sample of this moment. The thread that takes samples is the only one to do so.
    // The account is that of this moment. The caller makes it, since only the session can.
    LoadSample sample(const Account& account);

    // Since the last begin.
    Histogram latencies() const;
    Backlog::Sums backlog() const;
    QueuePeaks queues() const;
    std::vector<LoadSample> samples() const;
    // Of the whole session.
    uint64_t longest_event_queue() const;
    QueueSettings settings() const;
    // While the threads of the plug-in run.
    ThreadTimes times() const;

private:
    // Threads that log, the bus thread and the thread that takes samples meet here.
    mutable std::mutex mutex_;
    // All under the mutex.
    Clock::time_point begin_ = Clock::now();
    Histogram latencies_, since_sample_;
    uint64_t longest_since_sample_ = 0;
    uint64_t longest_event_queue_ = 0;
    QueuePeaks queues_;
    Backlog backlog_;
    // How many predictions had been followed to their end when the last sample was taken.
    uint64_t pairs_seen_ = 0;
    std::vector<LoadSample> samples_;
    QueueSettings settings_;
    std::optional<clockid_t> bus_thread_;  // known from its first event
};

}  // namespace zelhost
