// A load for programs.
#include <cmath>
#include <thread>

#include "host/commands/load.h"
#include "host/lib/account_json.h"

namespace zelhost {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

// All keys are an interface. Units stand in the names.
void number(JsonWriter& out, const char* key, uint64_t value) {
    out.Key(key);
    out.Uint64(value);
}

// Three places are enough for milliseconds and microseconds.
void real(JsonWriter& out, const char* key, double value) {
    out.Key(key);
    out.Double(std::round(value * 1000) / 1000);
}

// The texts of a load are this program's own or were checked by the parser, so they are UTF-8.
void text(JsonWriter& out, const char* key, const std::string& value) {
    out.Key(key);
    out.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}

void time(JsonWriter& out, const char* key, Milliseconds value) { real(out, key, value.count()); }

// Microseconds for each. Nothing was done when the count is 0.
void per(JsonWriter& out, const char* key, int64_t nanoseconds, uint64_t count) {
    real(out, key, count == 0 ? 0 : static_cast<double>(nanoseconds) / 1000 / static_cast<double>(count));
}

// In milliseconds.
void write_latency(JsonWriter& out, const Histogram& latencies) {
    out.Key("latency_ms");
    out.StartObject();
    number(out, "count", latencies.count());
    time(out, "median", latencies.quantile(0.5));
    time(out, "p99", latencies.quantile(0.99));
    time(out, "highest", latencies.highest());
    out.EndObject();
}

// The first three are known from the log alone.
void write_queues(JsonWriter& out, const LoadMeasures& measures) {
    out.Key("longest_queues");
    out.StartObject();
    if (measures.log) {
        number(out, "event", measures.queues.event);
        number(out, "trc", measures.queues.trc);
        number(out, "delay", measures.queues.delay);
    }
    number(out, "bus", measures.inbox);
    out.EndObject();
}

// Means are 0 when no prediction was followed.
void write_backlog(JsonWriter& out, const Backlog::Sums& sums) {
    const double count = sums.count == 0 ? 1 : static_cast<double>(sums.count);
    out.Key("backlog_ms");
    out.StartObject();
    number(out, "count", sums.count);
    time(out, "predicted_mean", sums.predicted / count);
    time(out, "measured_mean", sums.measured / count);
    time(out, "predicted_highest", sums.highest_predicted);
    time(out, "measured_highest", sums.highest_measured);
    out.EndObject();
}

// What one event or one trace costs, in microseconds of processor time.
void write_times(JsonWriter& out, const LoadMeasures& measures) {
    out.Key("processor_us");
    out.StartObject();
    per(out, "alarm_worker_per_event", measures.times.alarm_worker, measures.begun);
    per(out, "trace_worker_per_trace", measures.times.trace_worker, measures.traces_ended);
    per(out, "bus_per_event", measures.times.bus_thread, measures.on_bus);
    per(out, "all_but_publishers_per_event", measures.times.process - measures.publishers_time, measures.in);
    per(out, "publishers_per_event", measures.publishers_time, measures.in);
    out.EndObject();
}

// The members of an object that is open. What only the log tells is left out without it.
// The same members for a whole load and for a step of the search.
void write_measures(JsonWriter& out, const LoadMeasures& measures) {
    real(out, "asked_rate", measures.asked);
    real(out, "seconds", measures.seconds);
    number(out, "in", measures.in);
    real(out, "in_rate", measures.in_rate());
    real(out, "report_rate", static_cast<double>(measures.reports) / measures.seconds);
    real(out, "trace_rate", static_cast<double>(measures.traces) / measures.seconds);
    time(out, "published_late_ms", measures.published_late);
    number(out, "refused", measures.refused);
    write_latency(out, measures.latencies);
    write_queues(out, measures);
    if (measures.log) {
        number(out, "filtered", measures.filtered);
        number(out, "dropped", measures.dropped);
        write_backlog(out, measures.backlog);
    }
    write_times(out, measures);
}

// A figure that depends on speed means little without these.
void write_machine(JsonWriter& out, const LoadEnd& end) {
    out.Key("machine");
    out.StartObject();
    number(out, "processors", std::thread::hardware_concurrency());
    real(out, "used_by_others", end.measures.others);
    real(out, "load_average_before", end.load_before);
    real(out, "load_average_after", end.load_after);
    out.EndObject();
}

// A search without a result has a null.
void write_search(JsonWriter& out, const LoadEnd& end) {
    if (end.capacity) {
        real(out, "capacity", *end.capacity);
    } else {
        out.Key("capacity");
        out.Null();
    }
    out.Key("steps");
    out.StartArray();
    for (const CapacityStep& step : end.steps) {
        out.StartObject();
        real(out, "rate", step.rate);
        text(out, "fault", step.fault);
        write_measures(out, step.measures);
        out.EndObject();
    }
    out.EndArray();
}

// Only checks that do not hold are listed.
void write_checks(JsonWriter& out, const LoadEnd& end) {
    number(out, "checks", end.checks.size());
    out.Key("failed");
    out.StartArray();
    for (const Check& check : end.checks) {
        if (check.holds()) continue;
        out.StartObject();
        text(out, "what", check.what);
        out.Key("left");
        out.Int64(check.left);
        out.Key("right");
        out.Int64(check.right);
        out.EndObject();
    }
    out.EndArray();
    number(out, "wrong_calls", end.wrong_calls);
}

}  // namespace

// The members of the measures stand in the object itself, as those of the account do.
std::string load_json(const LoadOptions& options, const LoadEnd& end) {
    rapidjson::StringBuffer buffer;
    JsonWriter out(buffer);
    out.StartObject();
    number(out, "seed", options.events.seed);
    number(out, "threads", options.threads);
    text(out, "mix", options.mix.empty() ? "usual" : options.mix);
    out.Key("settled");
    out.Bool(end.settled);
    write_machine(out, end);
    number(out, "queue_max", end.settings.queue_max);
    number(out, "idle_sleep_ms", static_cast<uint64_t>(end.settings.idle_sleep.count()));
    if (options.find_capacity) write_search(out, end);
    write_measures(out, end.measures);
    number(out, "resident_kib_before", end.resident_before);
    number(out, "resident_kib_highest", end.resident_peak);
    number(out, "resident_kib_after", end.resident_after);
    write_checks(out, end);
    write_account(out, end.account, true);
    out.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + '\n';
}

}  // namespace zelhost
