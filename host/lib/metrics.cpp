#include "host/lib/metrics.h"

#include <prometheus/text_serializer.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <vector>

#include "host/lib/failure.h"
#include "host/lib/files.h"

namespace zelhost {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;

// What the figures below are taken from.
struct Snapshot {
    const Account& account;
    const RunProgress& run;
};

double real(uint64_t value) { return static_cast<double>(value); }

// One row for each metric with a single value. The names are an interface: dashboards and alarms know them.
struct Single {
    const char* name;
    const char* help;
    MetricType type;
    bool of_the_log;  // known only where the log is read
    double (*value)(const Snapshot& snapshot);
};
constexpr Single kSingles[] = {
    {"zelhost_start_time_seconds", "When the run began, in seconds since 1970.", MetricType::Gauge, false,
     [](const Snapshot& s) { return s.run.start_time; }},
    {"zelhost_running", "1 while the run goes on, 0 before its start and after its end.", MetricType::Gauge, false,
     [](const Snapshot& s) { return s.run.running ? 1.0 : 0.0; }},
    {"zelhost_input_lines_total", "Lines read of the input.", MetricType::Counter, false,
     [](const Snapshot& s) { return real(s.run.lines); }},
    {"zelhost_input_lines_skipped_total", "Lines of the input that could not be understood.", MetricType::Counter,
     false, [](const Snapshot& s) { return real(s.run.skipped); }},
    {"zelhost_output_lines_total", "Lines shown of what the plug-in gave out.", MetricType::Counter, false,
     [](const Snapshot& s) { return real(s.run.shown); }},
    {"zelhost_bus_events", "Events on the bus, in both directions.", MetricType::Gauge, false,
     [](const Snapshot& s) { return real(s.account.bus.waiting + s.account.bus.sending); }},
    {"zelhost_event_queue_events", "Events in the plug-in's event queue.", MetricType::Gauge, true,
     [](const Snapshot& s) { return real(queued(s.account.totals)); }},
    {"zelhost_traces_waiting", "Alerts whose trace has no end yet.", MetricType::Gauge, true,
     [](const Snapshot& s) { return real(s.account.totals.waiting_traces); }},
    {"zelhost_trace_retries_total", "Traces that were put off to a later attempt.", MetricType::Counter, true,
     [](const Snapshot& s) { return real(s.account.totals.sum(&KindFigures::retried)); }},
};

MetricFamily family(const char* name, const char* help, MetricType type) { return {name, help, type, {}}; }

void add(MetricFamily& family, double value, Labels labels = {}) {
    ClientMetric metric;
    metric.label = std::move(labels);
    (family.type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
    family.metric.push_back(std::move(metric));
}

// A figure of each kind of event that was published.
MetricFamily by_event(const Totals& totals, const char* name, const char* help, Figure figure) {
    MetricFamily events = family(name, help, MetricType::Counter);
    for (const auto& [id, kind] : totals.kinds)
        if (kind.in > 0) add(events, real(kind.*figure), {{"event", std::to_string(id)}});
    return events;
}

MetricFamily given_out_by_kind(const Totals& totals) {
    MetricFamily outgoing = family("zelhost_given_out_total", "What the plug-in gave out.", MetricType::Counter);
    for (const GivenOut& row : given_out()) add(outgoing, real(row.counted(totals)), {{"kind", row.key}});
    return outgoing;
}

// Every end that has words, also at 0, so that a rate can be told from the first one on.
MetricFamily unreported_by_reason(const Totals& totals) {
    MetricFamily unreported =
        family("zelhost_events_unreported_total", "Incoming events that ended without a report.", MetricType::Counter);
    for (const auto& [id, kind] : totals.kinds)
        for (const LogText& row : log_texts())
            if (kind.in > 0 && row.words != nullptr)
                add(unreported, real(kind.*row.figure), {{"event", std::to_string(id)}, {"reason", row.words}});
    return unreported;
}

MetricFamily traces_by_result(const Totals& totals) {
    MetricFamily traces = family("zelhost_traces_ended_total", "Traces that came to an end.", MetricType::Counter);
    add(traces, real(totals.sum(&KindFigures::succeeded)), {{"result", "finished"}});
    add(traces, real(totals.sum(&KindFigures::failed)), {{"result", "failed"}});
    add(traces, real(totals.sum(&KindFigures::dropped)), {{"result", "dropped"}});
    return traces;
}

MetricFamily log_lines_by_level(const Totals& totals) {
    MetricFamily lines = family("zelhost_log_lines_total", "Lines of the log.", MetricType::Counter);
    add(lines, real(totals.errors), {{"level", "error"}});
    add(lines, real(totals.warnings), {{"level", "warn"}});
    return lines;
}

}  // namespace

std::string metrics_text(const Account& account, const RunProgress& run) {
    const Totals& totals = account.totals;
    const Snapshot snapshot{account, run};
    std::vector<MetricFamily> families;
    for (const Single& row : kSingles) {
        if (row.of_the_log && !account.log) continue;
        families.push_back(family(row.name, row.help, row.type));
        add(families.back(), row.value(snapshot));
    }
    families.push_back(
        by_event(totals, "zelhost_events_published_total", "Events that the run published.", &KindFigures::in));
    families.push_back(by_event(totals, "zelhost_events_reported_total", "Published events that were reported.",
                                &KindFigures::reported));
    families.push_back(given_out_by_kind(totals));
    if (account.log) {
        families.push_back(unreported_by_reason(totals));
        families.push_back(traces_by_result(totals));
        families.push_back(log_lines_by_level(totals));
    }
    return prometheus::TextSerializer().Serialize(families);
}

MetricsFile::MetricsFile(const std::string& path) : path_(path) {
    std::error_code none;
    const auto status = std::filesystem::status(path, none);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        throw Failure("cannot replace the metrics {}: it is no regular file; name one that may be replaced", path);
    if (std::filesystem::exists(status)) path_ = std::filesystem::canonical(path);
}

// Written beside its place, under a name that no collector takes up.
void MetricsFile::replace(const std::string& text) const {
    const std::string fresh = fmt::format("{}.{}.tmp", path_, getpid());
    try {
        OutputFile file(fresh);
        file.write(text);
        file.flush();
    } catch (const Failure&) {
        unlink(fresh.c_str());
        throw;
    }
    if (rename(fresh.c_str(), path_.c_str()) == 0) return;
    const int error = errno;
    unlink(fresh.c_str());
    throw Failure("cannot replace the metrics {}: {}", path_, strerror(error));
}

}  // namespace zelhost
