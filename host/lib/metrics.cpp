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
// The library's own type for name and value of a label.
using Labels = std::vector<ClientMetric::Label>;

// What the figures below are taken from.
// Borrowed for the time of one text.
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
    // A metric of the log is left out when the log is not read. A 0 would be taken for a figure.
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

// A metric without values yet.
MetricFamily family(const char* name, const char* help, MetricType type) { return {name, help, type, {}}; }

void add(MetricFamily& family, double value, Labels labels = {}) {
    ClientMetric metric;
    metric.label = std::move(labels);
    // A counter only grows during a run; a gauge may fall.
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
// The words are those of the summary.
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

// One row for each metric of a sink with a single value.
// A sink has its figures apart, since most runs have none.
struct SinkSingle {
    const char* name;
    const char* help;
    MetricType type;
    double (*value)(const SinkAccount& sink);
};
constexpr SinkSingle kSinkSingles[] = {
    {"zelhost_sink_left_before", "Messages that earlier runs had left in the sink's buffer.", MetricType::Gauge,
     [](const SinkAccount& s) { return real(s.left_before); }},
    {"zelhost_sink_handed_over_total", "Messages handed to the sink.", MetricType::Counter,
     [](const SinkAccount& s) { return real(s.handed_over); }},
    {"zelhost_sink_acknowledged_total", "Messages that the server keeps.", MetricType::Counter,
     [](const SinkAccount& s) { return real(s.acknowledged); }},
    {"zelhost_sink_known_total", "Acknowledged messages that the server had already.", MetricType::Counter,
     [](const SinkAccount& s) { return real(s.known); }},
    {"zelhost_sink_refused_total", "Messages that the server will never take.", MetricType::Counter,
     [](const SinkAccount& s) { return real(s.refused); }},
    {"zelhost_sink_spilled_total", "Messages written into the sink's buffer.", MetricType::Counter,
     [](const SinkAccount& s) { return real(s.spilled); }},
    {"zelhost_sink_in_memory", "Messages of the sink that are in memory alone.", MetricType::Gauge,
     [](const SinkAccount& s) { return real(s.in_memory); }},
    {"zelhost_sink_buffered", "Messages in the sink's buffer.", MetricType::Gauge,
     [](const SinkAccount& s) { return real(s.buffered); }},
    {"zelhost_sink_buffer_bytes", "Room that the sink's buffer takes.", MetricType::Gauge,
     [](const SinkAccount& s) { return real(s.buffer_bytes); }},
    {"zelhost_sink_oldest_seconds", "Age of the oldest message in the sink's buffer.", MetricType::Gauge,
     [](const SinkAccount& s) { return s.oldest_seconds; }},
    {"zelhost_sink_connected", "1 while the sink is connected.", MetricType::Gauge,
     [](const SinkAccount& s) { return s.connected ? 1.0 : 0.0; }},
    {"zelhost_sink_connections_total", "Connections that the sink has made.", MetricType::Counter,
     [](const SinkAccount& s) { return real(s.connections); }},
};

void add_sink(std::vector<MetricFamily>& families, const SinkAccount& sink) {
    for (const SinkSingle& row : kSinkSingles) {
        families.push_back(family(row.name, row.help, row.type));
        add(families.back(), row.value(sink));
    }
    MetricFamily shed = family("zelhost_sink_shed_total", "Messages that the sink gave up.", MetricType::Counter);
    // Rows without a reason for shedding are of other figures.
    for (const SinkFigure& figure : kSinkFigures)
        if (figure.shed != nullptr) add(shed, real(sink.*figure.value), {{"reason", figure.shed}});
    families.push_back(std::move(shed));
}

}  // namespace

// The order of the families is fixed, so that two texts can be compared.
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
    if (run.sink) add_sink(families, *run.sink);
    return prometheus::TextSerializer().Serialize(families);
}

MetricsFile::MetricsFile(const std::string& path) : path_(path) {
    std::error_code none;
    const auto status = std::filesystem::status(path, none);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        throw Failure("cannot replace the metrics {}: it is no regular file; name one that may be replaced", path);
    // A link is resolved once. Otherwise the rename would replace the link.
    if (std::filesystem::exists(status)) path_ = std::filesystem::canonical(path);
}

// Written beside its place, under a name that no collector takes up.
void MetricsFile::replace(const std::string& text) const {
    // The number of the process keeps two runs apart.
    const std::string fresh = fmt::format("{}.{}.tmp", path_, getpid());
    try {
        OutputFile file(fresh);
        file.write(text);
        file.flush();
    } catch (const Failure&) {
        // Half a file is not left behind.
        unlink(fresh.c_str());
        throw;
    }
    if (rename(fresh.c_str(), path_.c_str()) == 0) return;
    const int error = errno;
    unlink(fresh.c_str());
    throw Failure("cannot replace the metrics {}: {}", path_, strerror(error));
}

}  // namespace zelhost
