// The lines of a script: events to publish, and calls of the plug-in's exports.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <limits>

#include "host/commands/run.h"
#include "host/lib/console.h"
#include "host/lib/dns_event.h"
#include "host/lib/failure.h"
#include "host/lib/message.h"
#include "platform/event_ids.h"

namespace zelhost {
namespace {

using Member = JsonText::Member;
using Type = JsonText::Type;

// The exports take contexts of 32 bits.
constexpr int64_t kMaxUint32 = std::numeric_limits<uint32_t>::max();

// 0 when the line names none.
uint32_t context_of(const JsonText& line) { return static_cast<uint32_t>(line.whole("context", 0, kMaxUint32, 0)); }

// The values go as they stand, so that one that is no string can be tried.
// Only the two keys go into the document.
// The values stand as they are in the line, also those that the plug-in has to refuse.
std::string config_document(const JsonText& line) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    for (const char* key : {"delay_time", "queue_size"}) {
        const Member* member = line.find(key);
        if (member == nullptr) continue;
        writer.Key(key);
        writer.RawValue(member->raw.data(), member->raw.size(), rapidjson::kStringType);
    }
    writer.EndObject();
    return buffer.GetString();
}

}  // namespace

// --- events ---

// An event that nobody takes is no mistake in the script: engines publish such events, too. It is said at the first one
// of each kind.
// The count is that of the account, so the line comes once for each event id.
void Run::note(uint32_t event_id, Session::Published published) {
    if (published != Session::Published::not_subscribed) return;
    if (session_->account().totals.of(event_id).not_subscribed == 1)
        console::say("line {}: the plug-in does not subscribe to event {}; such events are only counted",
                     input_->number(), event_id);
}

// No payload and an empty one differ: the first is a null pointer.
// The bus copies the bytes before it returns.
void Run::publish_bytes(uint32_t event_id, const Payload& payload) {
    const char* const data = payload ? payload->data() : nullptr;
    note(event_id, session_->publish(event_id, data, payload ? payload->size() : 0));
}

// A DNS hit is a native record with pointers, so it has a form of its own; all others are bytes.
// Throws Failure before anything is published.
void Run::play_event(const JsonText& line) {
    const auto event_id = static_cast<uint32_t>(line.whole("event", 0, kMaxUint32));
    if (event_id == event_id::ioc) {
        line.expect_only({"event", "dns"});
        const Member* dns = line.find("dns");
        if (dns == nullptr) throw Failure("event {} needs \"dns\"", event_id);
        const DnsEvent event(dns->raw);
        return note(event_id, session_->publish(event.native(), event.query_name()));
    }
    line.expect_only({"event", "alert", "json", "text", "hex", "message", "data"});
    publish_bytes(event_id, read_payload(line));
}

// --- calls ---

// What the exports answer is no failure of the run: a script may try a refusal on purpose.
// A script may go on after a refusal.
void Run::say_answer(const char* function, int answer) const {
    if (answer == 0) return;
    console::say("line {}: {} answered {}{}", input_->number(), function, answer,
                 answer == -2 ? ", since a reset period is open" : "; the log says why");
}

// A signal ends the sleep.
void Run::sleep(const JsonText& line) {
    line.expect_only({"do", "ms"});
    stop_signal_.sleep(std::chrono::milliseconds{line.whole("ms", 0, std::numeric_limits<int32_t>::max())});
}

// Traces are not waited for: one that is put off would hold the script up for 15 seconds.
void Run::wait(const JsonText& line) {
    line.expect_only({"do"});
    wait_until_idle(false);
}

// From here on events are let go until the reset ends.
void Run::reset_begin(const JsonText& line) {
    line.expect_only({"do"});
    session_->reset_begin();
}

// The data store and the trace module are loaded again.
void Run::reset_end(const JsonText& line) {
    line.expect_only({"do"});
    session_->reset_end();
}

// "text" takes any bytes, for documents that are none.
// The two keys or the whole text, as the line has it.
void Run::configure(const JsonText& line) {
    line.expect_only({"do", "delay_time", "queue_size", "text"});
    const std::string* text = line.text("text");
    const std::string document = text == nullptr ? config_document(line) : *text;
    say_answer("plugin_configuration_update",
               session_->configure(document.c_str(), static_cast<uint32_t>(document.size())));
}

// A key that is missing or null becomes a null pointer, which the export has to refuse.
// The answer to the trace comes later, on the trace worker.
void Run::file_trace(const JsonText& line) {
    line.expect_only({"do", "path", "file_key", "kind", "context"});
    const std::string* path = line.text("path");
    const std::string* file_key = line.text("file_key");
    const auto kind = static_cast<int>(line.whole("kind", INT32_MIN, INT32_MAX, 1));
    say_answer("reshdl_file_trace",
               session_->file_trace(path == nullptr ? nullptr : path->c_str(),
                                    file_key == nullptr ? nullptr : file_key->c_str(), kind, context_of(line)));
}

// "data" is a vorn_trace_info in JSON form, for the trace module reads no other; "text", "hex" and "json" give any
// bytes.
// The answer comes during this call, on the main thread.
void Run::process_trace(const JsonText& line) {
    line.expect_only({"do", "data", "json", "text", "hex", "context"});
    const Member* data = line.find("data");
    const Payload payload =
        data != nullptr && data->type != Type::null ? message_from_json(data->raw) : read_payload(line);
    say_answer("reshdl_process_trace",
               session_->process_trace(payload ? payload->data() : nullptr,
                                       payload ? static_cast<uint32_t>(payload->size()) : 0, context_of(line)));
}

// The reports of the end are for the sums only; this one is printed.
// The reports come on the manager's thread, while this call waits.
void Run::report(const JsonText& line) {
    line.expect_only({"do"});
    print_reports_ = true;
    session_->collect();
    print_reports_ = false;
}

// A row of the table of actions.
struct Run::ScriptAction {
    std::string_view name;
    void (Run::*act)(const JsonText& line);
};
// One row an action; each knows its own keys and refuses others.
const Run::ScriptAction Run::kActions[] = {
    {"sleep", &Run::sleep},
    {"wait", &Run::wait},
    {"reset_begin", &Run::reset_begin},
    {"reset_end", &Run::reset_end},
    {"config", &Run::configure},
    {"report", &Run::report},
    {"process_trace", &Run::process_trace},
    {"file_trace", &Run::file_trace},
};

// An alert document may stand as it is, without an envelope: such files exist, and one alert a line is the commonest
// input.
// The first key that is found decides what the line is.
void Run::play_line(std::string_view text) {
    const JsonText line(text);
    // A line with "event" is never an action.
    if (line.find("event") != nullptr) return play_event(line);
    if (const std::string* name = line.text("do")) {
        const auto* action = std::ranges::find(kActions, *name, &ScriptAction::name);
        if (action != std::end(kActions)) return (this->*action->act)(line);
        std::vector<std::string_view> known;
        for (const ScriptAction& each : kActions) known.push_back(each.name);
        throw Failure("\"do\" knows no {}; known: {}", *name, fmt::join(known, ", "));
    }
    // The decoder finds keys in upper and lower case alike.
    for (const char* key : {"alert_type", "rule", "Guid"})
        if (line.has_ignoring_case(key)) return publish_bytes(event_id::ioa_alert, std::string(text));
    throw Failure("neither \"event\" nor \"do\" nor an alert document");
}

}  // namespace zelhost
