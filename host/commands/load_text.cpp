// A load for people: a table, and the account behind it.
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <thread>

#include "host/commands/load.h"
#include "host/lib/account_text.h"

namespace zelhost {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

// Lines with a name in front of each.
// Names stand in one column, so that a reader finds a figure again.
class Table {
public:
    template <class... T>
    void row(const char* name, fmt::format_string<T...> format, T&&... values) {
        fmt::format_to(std::back_inserter(text_), "  {:<18} ", name);
        fmt::format_to(std::back_inserter(text_), format, std::forward<T>(values)...);
        text_ += '\n';
    }
    std::string take() { return std::move(text_); }

private:
    std::string text_;
};

// Two places are enough for milliseconds.
std::string ms(Milliseconds time) { return fmt::format("{:.2f}", time.count()); }

// Of a latency, what one idle sleep cannot explain.
// A worker that sleeps finds an event only when it wakes. That part of a latency is no cost of the
// plug-in's work.
std::string beyond(Histogram::Microseconds latency, std::chrono::milliseconds sleep) {
    return ms(std::max<Histogram::Microseconds>(latency - sleep, Histogram::Microseconds{0}));
}

// Microseconds of processor time for each; 0 when there was none.
double per(int64_t nanoseconds, uint64_t count) {
    return count == 0 ? 0 : static_cast<double>(nanoseconds) / 1000 / static_cast<double>(count);
}

// In percent.
double share(uint64_t part, uint64_t all) {
    return all == 0 ? 0 : 100 * static_cast<double>(part) / static_cast<double>(all);
}

// Latencies are those of alert documents alone.
void write_latency(Table& table, const LoadMeasures& measures, std::chrono::milliseconds sleep) {
    const Histogram& all = measures.latencies;
    if (all.count() == 0) return table.row("latency", "no alert was reported");
    const auto median = all.quantile(0.5);
    const auto slow = all.quantile(0.99);
    table.row("latency", "to the first report: median {} ms, p99 {} ms, highest {} ms, of {} alerts", ms(median),
              ms(slow), ms(all.highest()), all.count());
    table.row("", "beyond the idle sleep of {} ms: median {} ms, p99 {} ms, highest {} ms", sleep.count(),
              beyond(median, sleep), beyond(slow, sleep), beyond(all.highest(), sleep));
}

// A load without waiting traces has no prediction to follow.
void write_backlog(Table& table, const Backlog::Sums& sums) {
    if (sums.count == 0) return table.row("backlog of traces", "no prediction was followed by a wait");
    const auto count = static_cast<double>(sums.count);
    table.row("backlog of traces", "predicted {} ms, measured {} ms in the mean of {}; highest {} and {} ms",
              ms(sums.predicted / count), ms(sums.measured / count), sums.count, ms(sums.highest_predicted),
              ms(sums.highest_measured));
}

// The rows that a step and a whole load have in common.
void write_measures(Table& table, const LoadMeasures& measures, const QueueSettings& settings) {
    table.row("in", "{} events in {:.1f} s, {:.0f} a second{}", measures.in, measures.seconds, measures.in_rate(),
              measures.asked > 0 ? fmt::format("; at most {} ms late", ms(measures.published_late)) : "");
    table.row("out meanwhile", "{:.0f} first reports and {:.0f} traces a second",
              static_cast<double>(measures.reports) / measures.seconds,
              static_cast<double>(measures.traces) / measures.seconds);
    write_latency(table, measures, settings.idle_sleep);
    if (measures.log) {
        table.row("longest queues", "event {}, trc {}, delay {}, limit {}; on the bus {}", measures.queues.event,
                  measures.queues.trc, measures.queues.delay, settings.queue_max, measures.inbox);
    } else {
        table.row("longest queues", "on the bus {}; the others are not known without the log", measures.inbox);
    }
    table.row("refused", "{} ({:.1f} %) by full queues", measures.refused, share(measures.refused, measures.in));
    if (measures.log) {
        table.row("shed", "{} alerts filtered, {} traces dropped", measures.filtered, measures.dropped);
        write_backlog(table, measures.backlog);
    }
    const ThreadTimes& times = measures.times;
    table.row("processor time",
              "alarm worker {:.1f} us an event, trace worker {:.1f} us a trace, bus {:.1f} us an event",
              per(times.alarm_worker, measures.begun), per(times.trace_worker, measures.traces_ended),
              per(times.bus_thread, measures.on_bus));
    table.row("", "all threads but the publishers {:.1f} us an event that came in; publishers {:.1f} us",
              per(times.process - measures.publishers_time, measures.in), per(measures.publishers_time, measures.in));
}

// Memory is measured in KiB and shown in MiB.
std::string mib(uint64_t kib) { return fmt::format("{:.1f}", static_cast<double>(kib) / 1024); }

}  // namespace

// The search shows a step as soon as it was tried.
std::string step_text(const CapacityStep& step) {
    const LoadMeasures& measures = step.measures;
    const std::string queues =
        measures.log ? fmt::format(", event queue {}, trc queue {}", measures.queues.event, measures.queues.trc) : "";
    return fmt::format("  {:>8.0f} a second: {}; p99 {} ms{}\n", step.rate, step.fault.empty() ? "borne" : step.fault,
                       ms(measures.latencies.quantile(0.99)), queues);
}

// Also the title of the picture.
std::string load_heading(const LoadOptions& options, const LoadEnd& end) {
    std::string text = "load: as fast as it goes";
    if (options.find_capacity)
        text = end.capacity ? fmt::format("capacity: {:.0f} events a second", *end.capacity) : "capacity: none found";
    else if (options.rate > 0)
        text = fmt::format("load: {} events a second", options.rate);
    return fmt::format("{}; seed {}, {} threads, mix {}{}", text, options.events.seed, options.threads,
                       options.mix.empty() ? "as usual" : options.mix, end.stopped ? "; stopped by a signal" : "");
}

// The heading, the table, the checks that failed, and the account of the session.
std::string load_text(const LoadOptions& options, const LoadEnd& end) {
    Table table;
    table.row("machine", "other programs used {:.2f} of {} processors; load average {:.2f} before, {:.2f} after",
              end.measures.others, std::thread::hardware_concurrency(), end.load_before, end.load_after);
    write_measures(table, end.measures, end.settings);
    table.row("resident memory", "{} MiB before, {} MiB at most, {} MiB after", mib(end.resident_before),
              mib(end.resident_peak), mib(end.resident_after));
    const auto held = std::ranges::count_if(end.checks, [](const Check& check) { return check.holds(); });
    table.row("account", "{} of {} checks hold{}", held, end.checks.size(),
              end.wrong_calls > 0 ? fmt::format(", {} calls were answered wrongly", end.wrong_calls) : "");
    return load_heading(options, end) + "\n" + table.take() + failed_text(end.checks) +
           account_text(end.account, end.settled ? End::quiet : End::under_load);
}

}  // namespace zelhost
