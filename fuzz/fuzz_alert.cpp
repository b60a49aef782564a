// Any bytes as the text of event 1536: decoded and built step by step, and then taken the whole road from its native
// record to what is sent.
#include <algorithm>
#include <string>
#include <string_view>

#include "fuzz.h"
#include "fuzz_alert.h"
#include "json_mutator.h"
#include "pipeline.h"
#include "retrace.pb.h"
#include "trace/getprotobuf.h"

const size_t fuzz::head_size = 0;

namespace {

// Texts that a line may show beside those of the document: files, GUIDs, keys and what is made of numbers.
constexpr size_t kOwnTexts = 1024;

std::string build(ST_BUF_DATA& data, int& events) {
    zel::MallocBuffer buffer;
    int level = 0;
    const uint64_t size = CGetProtobuf::GetComProtobuf(data, false, buffer, events, level, event_id::ioa_alert);
    FUZZ_CHECK((size == 0) == (buffer == nullptr));
    FUZZ_CHECK(level >= 0 && level <= 5);
    return size == 0 ? std::string() : std::string(buffer.get(), size);
}

// A list has no more elements than its text has characters, and a message no more bytes than its numbers can take.
void check_bounds(const ST_BUF_DATA& data, std::string_view text, size_t message_size) {
    size_t elements = data.vecRule.size() + data.vecProcessSet.size();
    for (const ST_RULE& rule : data.vecRule) {
        elements += rule.vecEvent.size() + rule.vecTags.size();
        for (const ST_RAW_EVENT& event : rule.vecEvent)
            elements += event.vecHighlight.size() + event.vecSubHighlight.size();
    }
    FUZZ_CHECK(elements <= text.size());
    FUZZ_CHECK(message_size <= 4 * text.size() + 1024);
}

// The text check lets some bytes pass that a parser refuses; plain ASCII must come through whole.
void check_message(const std::string& bytes, const ST_BUF_DATA& data, int events, bool ascii) {
    vorn_retrace::vorn_trace_info message;
    const bool parsed = message.ParseFromString(bytes);
    FUZZ_CHECK(parsed || !ascii);
    if (!parsed) return;
    FUZZ_CHECK(message.SerializeAsString() == bytes);
    FUZZ_CHECK(message.threat().alert_guid() == data.strGuid);
    FUZZ_CHECK(static_cast<size_t>(message.threat().alert_rule_size()) == data.vecRule.size());
    int written = 0;
    for (const auto& rule : message.threat().alert_rule()) written += rule.alert_event_size();
    FUZZ_CHECK(written == events);
}

// The same document twice; a report goes out as the last event, and its message is the one that was built.
void take_the_road(std::string_view text, const std::string& guid, const std::string& message, bool has_trigger) {
    const fuzz::Native native(event_id::ioa_alert, text.data(), text.size());
    const fuzz::Outcome first = fuzz::run_event(event_id::ioa_alert, native.incoming());
    FUZZ_CHECK(first.taken && !first.given_up);
    const bool reported = !first.sent.empty() && first.sent.back().id == event_id::first_report;
    for (const fuzz::Sent& sent : first.sent)
        FUZZ_CHECK(sent.id == event_id::mem_detect || (reported && &sent == &first.sent.back()));
    // What has a trigger rule goes out without it, or not at all.
    if (!has_trigger) FUZZ_CHECK(reported == !message.empty());
    if (reported) {
        const fuzz::Sent& report = first.sent.back();
        FUZZ_CHECK(report.source == event_id::ioa_alert && report.guid == guid);
        if (!has_trigger) FUZZ_CHECK(report.bytes == message);
    }
    fuzz::advance(fuzz::kFilterPeriod);
    FUZZ_CHECK(fuzz::run_event(event_id::ioa_alert, native.incoming()).sent == first.sent);
    fuzz::advance(fuzz::kFilterPeriod);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    fuzz::longest_text = size + kOwnTexts;
    FUZZ_CHECK(Decoded(kSmallest).good);

    Decoded first(text);
    const std::string guid = first.node->szGuid;
    FUZZ_CHECK(guid.size() <= kGuidSize && guid == first.data.strGuid);
    if (first.good && has_zero_file_time(first.data)) return 0;
    if (!first.good) {
        take_the_road(text, guid, {}, false);
        return 0;
    }
    int events = 0;
    const std::string message = build(first.data, events);
    check_bounds(first.data, text, message.size());
    const bool ascii = text.find("\\u") == std::string_view::npos &&
                       std::all_of(text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) >= 0; });
    if (!message.empty()) check_message(message, first.data, events, ascii);

    Decoded second(text);
    int events_again = 0;
    FUZZ_CHECK(second.good && build(second.data, events_again) == message && events_again == events);
    // An alert without rules counts as one of trigger rules alone.
    const auto& rules = first.data.vecRule;
    const auto is_trigger = [](const ST_RULE& rule) { return rule.strStatus == "Trigger"; };
    take_the_road(text, guid, message, rules.empty() || std::ranges::any_of(rules, is_trigger));
    return 0;
}
