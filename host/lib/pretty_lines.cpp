#include "host/lib/pretty_lines.h"

#include <fmt/format.h>
#include <retrace.pb.h>

#include "host/lib/console.h"
#include "host/lib/event_names.h"
#include "host/lib/local_time.h"
#include "host/lib/message_parse.h"
#include "host/lib/severity.h"
#include "host/lib/visible.h"

namespace zelhost {
namespace {

using vorn_retrace::threat_alert;
using vorn_retrace::vorn_trace_info;

// An empty column would make the line hard to read by columns.
std::string or_dash(const std::string& text) { return text.empty() ? "-" : text; }

std::string_view base_name(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// The outcome stands first, since a narrow terminal cuts off what is behind it.
std::string joined(std::string_view outcome, std::string_view what) {
    return what.empty() ? std::string(outcome) : fmt::format("{}: {}", outcome, what);
}

// The first rule, and how many more there are.
std::string rule_of(const vorn_trace_info& message) {
    // A credible event has its rule in a place of its own.
    if (message.has_credible_event()) return message.credible_event().rule().rule_id();
    const auto& rules = message.threat().alert_rule();
    if (rules.empty()) return {};
    return rules.size() == 1 ? rules[0].rule_id() : fmt::format("{}+{}", rules[0].rule_id(), rules.size() - 1);
}

// The subject of the first event, which the alert is about.
std::string process_of(const vorn_trace_info& message) {
    if (message.has_credible_event()) return std::string(base_name(message.credible_event().match_process()));
    for (const auto& rule : message.threat().alert_rule())
        for (const auto& event : rule.alert_event())
            if (const auto& subject = event.subject_process(); event.has_subject_process())
                return fmt::format("{}[{}]", base_name(subject.process_path()), subject.process_id());
    return {};
}

// What the message is about: the alert's own words, or else the kind of event that it stems from.
std::string subject_of(const vorn_trace_info& message, EVENT_ID source) {
    const threat_alert& threat = message.threat();
    // From the most telling text to the least.
    for (const std::string* text : {&threat.alert_name(), &threat.malicious_key(), &threat.alert_desc(),
                                    &message.credible_event().rule().rule_name(), &threat.file_key()})
        if (!text->empty()) return *text;
    if (message.avscan_event().list_size() > 0) return message.avscan_event().list(0).virus_name();
    return event_name(source);
}

// Every list of the chain but that of its edges holds vertices.
std::string chain_text(const vorn_retrace::vorn_trace_event& chain) {
    const auto* const type = chain.GetDescriptor();
    // The list of edges is taken off here, because the loop counts it as well.
    int vertices = -chain.edge_list_size();
    for (int i = 0; i < type->field_count(); ++i)
        if (type->field(i)->is_repeated()) vertices += chain.GetReflection()->FieldSize(chain, type->field(i));
    const int edges = chain.edge_list_size();
    return fmt::format("chain of {} {}, {} {}", vertices, vertices == 1 ? "vertex" : "vertices", edges,
                       edges == 1 ? "edge" : "edges");
}

std::string trace_text(const vorn_trace_info& message) {
    if (message.err_code() != vorn_retrace::SUCCESS)
        return fmt::format("trace ended with {}", ERROR_CODE_Name(message.err_code()));
    return message.has_trace_event() ? chain_text(message.trace_event()) : "no chain";
}

std::string batch_text(const vorn_trace_info& message) {
    // The counts are of the hits after the first one.
    uint64_t hits = 0;
    for (const auto& alert : message.dup_alerts()) hits += static_cast<uint32_t>(alert.dup_count());
    return fmt::format("{} alerts were hit again, {} times in all", message.dup_alerts_size(), hits);
}

// Whether a chain follows the first report. Documents alone may be repeats, and from a container they are not traced.
std::string report_text(const vorn_trace_info& message, EVENT_ID source, bool tracing) {
    const threat_alert& threat = message.threat();
    const bool document = source == event_id::ioa_alert || source == event_id::memory_trojan;
    // The plug-in marks a repeat by this code.
    if (message.err_code() == vorn_retrace::ERROR_CODE_TRACE_FILTERED) return "not traced, repeat";
    if (document && !threat.containerid().empty() && threat.containerid() != "host")
        return fmt::format("not traced, container {}",
                           threat.containername().empty() ? threat.containerid() : threat.containername());
    // Findings and detections are never traced.
    const bool follows = tracing && (document || source == event_id::ioc || source == event_id::kov);
    return follows ? "trace follows" : "reported";
}

// What kind of line it is, and what became of the alert.
struct Outcome {
    const char* kind;
    std::string text;
};

Outcome outcome_of(const ST_PB_EVENT& event, const vorn_trace_info& message, bool tracing) {
    const EVENT_ID source = event.uSourceEventId;
    if (event.uEventId == event_id::credible_report) return {"finding", "reported"};
    if (event.uEventId == event_id::first_report) return {"report", report_text(message, source, tracing)};
    if (source == event_id::trc_ex) return {"expansion", trace_text(message)};
    if (message.dup_alerts_size() > 0) return {"repeats", batch_text(message)};
    return {"trace", trace_text(message)};
}

// The words of a figure stand at its first row. Traces go on to another attempt or end without a chain.
const char* words_of(const LogText& row) {
    if (row.figure == &KindFigures::failed) return "trace failed";
    if (row.figure == &KindFigures::dropped) return "trace dropped";
    if (row.figure == &KindFigures::retried) return "trace put off";
    // A figure that ends an event elsewhere has no line for people here.
    for (const LogText& each : log_texts())
        if (each.figure == row.figure && each.ends == Place::alarm_worker) return each.words;
    return nullptr;
}

// Some texts end where the GUID begins.
std::string_view guid_of(const LogLine& line) {
    constexpr std::string_view mark = "guid:";
    if (line.row->text.ends_with(mark)) return line.rest;
    const size_t at = line.rest.find(mark);
    return at == std::string_view::npos ? std::string_view{} : line.rest.substr(at + mark.size());
}

}  // namespace

// What a line is made of. Texts are as they came, and are made visible when the line is written.
struct PrettyLines::Columns {
    std::string_view kind;
    int level = 0;
    std::string rule{}, process{}, outcome{};
    std::string_view guid{};
    Tint tint = Tint::plain;  // of the outcome
};

// The beginning of a GUID is enough to find the lines of one alert. Columns are filled and cut before they are painted,
// since codes have no width. A level that the schema does not know is shown as none.
std::string PrettyLines::line(const Columns& columns) const {
    const bool known = columns.level >= 0 && static_cast<size_t>(columns.level) < std::size(kSeverities);
    const Severity& severity = kSeverities[known ? columns.level : 0];
    const std::string head = local_time(false);
    const std::string kind = fmt::format("{:<9.9}", columns.kind);
    const std::string level = fmt::format("{:<8}", severity.name);
    const std::string rule = fmt::format("{:<15.15}", or_dash(visible(columns.rule)));
    const std::string process = fmt::format("{:<18.18}", or_dash(visible(columns.process)));
    std::string outcome = visible(columns.outcome);
    const std::string guid = visible(columns.guid.substr(0, 8));

    // What stands before the outcome: the widths of the columns and the blanks between them.
    constexpr size_t kBefore = 12 + 9 + 8 + 15 + 18 + 5;
    constexpr size_t kLeast = 10;
    if (const size_t width = console::columns(descriptor_); width > 0) {
        const size_t used = kBefore + (guid.empty() ? 0 : guid.size() + 1);
        // On a very narrow terminal the outcome keeps a few characters, and the line wraps.
        outcome = fmt::format("{:.{}}", outcome, width > used + kLeast ? width - used : kLeast);
    }
    return fmt::format("{} {} {} {} {} {}{}{}\n", paint_(Tint::faint, head), paint_(Tint::bold, kind),
                       paint_(severity.tint, level), paint_(Tint::place, rule), process, paint_(columns.tint, outcome),
                       guid.empty() ? "" : " ", paint_(Tint::faint, guid));
}

// A message that does not parse is still shown: it is what the agent would have sent.
std::string PrettyLines::event(const ST_PB_EVENT& event) const {
    const std::string_view guid = event.pszGuid == nullptr ? "" : event.pszGuid;
    vorn_trace_info message;
    // A message that cannot be read has neither level nor rule.
    if (!parse_message(event.pData, event.uSize, message))
        return line({.kind = event.uEventId == event_id::first_report ? "report" : "trace",
                     .outcome = joined(fmt::format("{} bytes that are no message", uint64_t{event.uSize}),
                                       event_name(event.uSourceEventId)),
                     .guid = guid,
                     .tint = Tint::error});
    const Outcome outcome = outcome_of(event, message, tracing_);
    return line({.kind = outcome.kind,
                 .level = message.threat().risk_level(),
                 .rule = rule_of(message),
                 .process = process_of(message),
                 .outcome = joined(outcome.text, subject_of(message, event.uSourceEventId)),
                 .guid = guid,
                 .tint = event.uEventId == event_id::finished_trace ? Tint::good : Tint::plain});
}

std::string PrettyLines::memory_check(const ST_MEM_DETECT_INFO& info) const {
    return line(
        {.kind = "check",
         .process = fmt::format("{}[{}]", base_name(info.pszPath == nullptr ? "" : info.pszPath), uint32_t{info.uPid}),
         .outcome = fmt::format("memory check, confidence {}", int32_t{info.nConfidence})});
}

std::string PrettyLines::answer(int code, uint32_t context, const char* buffer, uint32_t size) const {
    vorn_trace_info message;
    const bool parsed = parse_message(buffer, size, message);
    return line({.kind = "answer",
                 .level = message.threat().risk_level(),
                 .rule = rule_of(message),
                 .process = process_of(message),
                 .outcome = fmt::format("code {}, context {}: {}", code, context,
                                        parsed ? trace_text(message) : std::string("no result"))});
}

std::string PrettyLines::report(std::string_view module, std::string_view text) const {
    return line({.kind = "statistic", .rule = std::string(module), .outcome = std::string(text)});
}

// A trace that was put off comes again, so its line is faint.
std::string PrettyLines::remark(const LogLine& logged) const {
    const char* const words = logged.row == nullptr ? nullptr : words_of(*logged.row);
    if (words == nullptr) return {};
    const bool put_off = logged.row->figure == &KindFigures::retried;
    return line({.kind = logged.row->ends == Place::goes_on ? "trace" : "lost",
                 .outcome = joined(words, event_name(logged.event)),
                 .guid = guid_of(logged),
                 .tint = put_off ? Tint::faint : Tint::warning});
}

}  // namespace zelhost
