#include "host/record/comparison.h"

#include <fmt/format.h>
#include <google/protobuf/util/message_differencer.h>
#include <retrace.pb.h>

#include <algorithm>
#include <string_view>

#include "host/lib/failure.h"
#include "host/lib/json_text.h"
#include "host/lib/visible.h"
#include "platform/event_ids.h"

namespace zelhost {
namespace {

constexpr size_t kMostLines = 20;  // of one difference

// What differs, a line each, as "FIELD: RECORD -> NOW".
using Lines = std::vector<std::string>;

// Texts may hold any bytes; the line on the terminal must not.
std::string shown(std::string_view text) { return fmt::format("\"{}\"", visible(text)); }

// The text of the record stands on the left of the arrow, the one of this replay on the right.
void compare_texts(const char* field, std::string_view record, std::string_view now, Lines& lines) {
    if (record != now) lines.push_back(fmt::format("{}: {} -> {}", field, shown(record), shown(now)));
}

void compare_numbers(const char* field, int64_t record, int64_t now, Lines& lines) {
    if (record != now) lines.push_back(fmt::format("{}: {} -> {}", field, record, now));
}

// The lines of the library's report begin with what happened to a field.
void add_report(const std::string& report, Lines& lines) {
    size_t at = 0;
    for (size_t end; (end = report.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(visible(report.substr(at, end - at)));
}

// Messages that parse are compared field by field. Messages that do not are compared by their
// bytes. The same holds for two messages that differ in bytes alone.
void compare_messages(const std::string& record, const std::string& now, Lines& lines) {
    if (record == now) return;
    vorn_retrace::vorn_trace_info first;
    vorn_retrace::vorn_trace_info second;
    if (first.ParseFromString(record) && second.ParseFromString(now)) {
        google::protobuf::util::MessageDifferencer differencer;
        std::string report;
        differencer.ReportDifferencesToString(&report);
        if (!differencer.Compare(first, second)) return add_report(report, lines);
    }
    const auto at = std::ranges::mismatch(record, now).in1 - record.begin();
    lines.push_back(
        fmt::format("message: {} bytes -> {} bytes, which differ from byte {} on", record.size(), now.size(), at));
}

// The line of a memory check is an object in an object, with members of plain values.
void compare_checks(const std::string& record, const std::string& now, Lines& lines) {
    // A member that the replay has and the record does not is found by the last line when nothing
    // else differs: the whole texts are shown then.
    constexpr const char* kCheck = "memory_check";
    try {
        const JsonText first(record);
        const JsonText second(now);
        const JsonText then(first.find(kCheck) == nullptr ? "{}" : first.find(kCheck)->raw);
        const JsonText today(second.find(kCheck) == nullptr ? "{}" : second.find(kCheck)->raw);
        for (const JsonText::Member& member : then.members()) {
            const JsonText::Member* const other = today.find(member.key);
            const std::string_view value = other == nullptr ? "nothing" : other->raw;
            if (member.raw != value)
                lines.push_back(visible(fmt::format("{}: {} -> {}", member.key, member.raw, value)));
        }
    } catch (const Failure&) {
        lines.clear();  // no line of a memory check; it is shown whole
    }
    if (lines.empty()) compare_texts(kCheck, record, now, lines);
}

// One kind of message has one set of fields. Whatever is left is an event.
Lines differences(const record::Output& record, const record::Output& now) {
    Lines lines;
    if (record.has_memory_check()) {
        if (record.memory_check().line() != now.memory_check().line())
            compare_checks(record.memory_check().line(), now.memory_check().line(), lines);
    } else if (record.has_call_back()) {
        compare_numbers("code", record.call_back().code(), now.call_back().code(), lines);
        compare_numbers("context", record.call_back().context(), now.call_back().context(), lines);
        compare_messages(record.call_back().message(), now.call_back().message(), lines);
    } else if (record.has_report()) {
        compare_texts("module", record.report().module(), now.report().module(), lines);
        compare_numbers("result", record.report().result(), now.report().result(), lines);
        compare_texts("text", record.report().text(), now.report().text(), lines);
    } else {
        compare_numbers("source", record.event().source(), now.event().source(), lines);
        compare_texts("guid", record.event().guid(), now.event().guid(), lines);
        compare_messages(record.event().message(), now.event().message(), lines);
    }
    return lines;
}

// Only an event knows its alert. Other messages add nothing to the line.
std::string guid_of(const record::Output& output) {
    return output.event().guid().empty() ? std::string() : ", alert " + visible(output.event().guid());
}

}  // namespace

// Chains come from the trace worker, all other events from the alarm worker: batches of repeats, which have no GUID,
// and the answers to requests for an expansion are events 770, too.
Comparison::Stream Comparison::stream_of(const record::Output& output) {
    // A memory check is asked for while the alarm worker has the alert in hand.
    if (output.has_memory_check()) return {"alarm worker", "2305"};
    if (output.has_call_back()) {
        // This code of the result call-back stands for a file trace, which the trace worker makes.
        // Other traces are made on the host's own thread.
        constexpr int kFileTrace = 8;
        return {output.call_back().code() == kFileTrace ? "trace worker" : "host", "callback"};
    }
    if (output.has_report()) return {"report manager", "report"};
    const record::Event& event = output.event();
    const bool chain = event.event_id() == event_id::finished_trace && event.source() != event_id::trc_ex &&
                       !(event.source() == event_id::ioc && event.guid().empty());
    return {chain ? "trace worker" : "alarm worker", std::to_string(event.event_id())};
}

void Comparison::expect(record::Output output, int64_t at_us) {
    const std::lock_guard lock(mutex_);
    const Stream stream = stream_of(output);
    Matches& matches = streams_[stream];
    matches.expected.emplace_back(std::move(output), at_us);
    match(stream, matches);
}

void Comparison::take(record::Output output) {
    const std::lock_guard lock(mutex_);
    const Stream stream = stream_of(output);
    Matches& matches = streams_[stream];
    matches.taken.push_back(std::move(output));
    match(stream, matches);
}

void Comparison::match(const Stream& stream, Matches& matches) {
    while (!matches.expected.empty() && !matches.taken.empty()) {
        const auto& [record, at_us] = matches.expected.front();
        Lines lines = differences(record, matches.taken.front());
        // Counts from 1 within the stream, as a reader would count the lines of the output.
        const uint64_t number = matches.equal + matches.different + 1;
        ++(lines.empty() ? matches.equal : matches.different);
        if (!lines.empty() && first_.empty()) {
            // A message may have thousands of fields. The first ones tell what is wrong.
            if (lines.size() > kMostLines) {
                const size_t more = lines.size() - kMostLines;
                lines.resize(kMostLines);
                lines.push_back(fmt::format("... and {} fields more", more));
            }
            first_ = fmt::format("first difference: number {} of {} of the {}, at {:.3f} s{}; record -> now:\n  {}\n",
                                 number, stream.second, stream.first, static_cast<double>(at_us) / 1e6, guid_of(record),
                                 fmt::join(lines, "\n  "));
        }
        matches.expected.pop_front();
        matches.taken.pop_front();
    }
}

bool Comparison::equal(bool cut_short) const {
    // A record that was cut ends before the plug-in did. So what comes beyond it is no difference.
    const std::lock_guard lock(mutex_);
    return std::ranges::all_of(streams_, [cut_short](const auto& entry) {
        const Matches& matches = entry.second;
        return matches.different == 0 && matches.expected.empty() && (cut_short || matches.taken.empty());
    });
}

std::string Comparison::text(bool cut_short) const {
    const std::lock_guard lock(mutex_);
    std::string text = first_;
    for (const auto& [stream, matches] : streams_) {
        text += fmt::format("{}, {}: {} equal", stream.first, stream.second, matches.equal);
        if (matches.different > 0) text += fmt::format(", {} different", matches.different);
        if (!matches.expected.empty())
            text += fmt::format(", {} missing from {:.3f} s on{}", matches.expected.size(),
                                static_cast<double>(matches.expected.front().second) / 1e6,
                                guid_of(matches.expected.front().first));
        if (!matches.taken.empty())
            text += fmt::format(", {} {}{}", matches.taken.size(),
                                cut_short ? "after the end of the record" : "that the record does not have",
                                guid_of(matches.taken.front()));
        text += '\n';
    }
    return text;
}

}  // namespace zelhost
