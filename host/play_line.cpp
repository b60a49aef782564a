// The lines of a script: events to publish, and calls of the plug-in's exports.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <limits>

#include "console.h"
#include "dns_event.h"
#include "event_kinds.h"
#include "failure.h"
#include "json_text.h"
#include "message.h"
#include "run.h"

namespace zel {
namespace {

using Member = JsonText::Member;
using Type = JsonText::Type;

constexpr int64_t kMaxUint32 = std::numeric_limits<uint32_t>::max();
constexpr std::chrono::milliseconds kFullPause{1};

// --- payloads ---

// No value is a null pointer with size 0.
using Payload = std::optional<std::string>;

Payload raw_bytes(const Member& member) { return std::string(member.raw); }

Payload text_bytes(const Member& member) {
    if (member.type != Type::string) throw Failure("\"{}\" must be a string", member.key);
    return member.text;
}

Payload hex_bytes(const Member& member) {
    const std::string& digits = member.text;
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        uint8_t byte = 0;
        const char* const pair = digits.data() + i;
        if (std::from_chars(pair, pair + 2, byte, 16).ptr != pair + 2) break;
        bytes += static_cast<char>(byte);
    }
    if (member.type != Type::string || bytes.size() * 2 != digits.size())
        throw Failure("\"{}\" must be a string of pairs of hexadecimal digits", member.key);
    return bytes;
}

Payload message_bytes(const Member& member) { return message_from_json(member.raw); }

Payload no_bytes(const Member& member) {
    if (member.type != Type::null)
        throw Failure("\"{}\" can only be null; \"text\" and \"hex\" take bytes", member.key);
    return {};
}

struct Form {
    std::string_view key;
    Payload (*read)(const Member& member);
};
constexpr Form kForms[] = {
    {"alert", raw_bytes}, {"json", raw_bytes},        {"text", text_bytes},
    {"hex", hex_bytes},   {"message", message_bytes}, {"data", no_bytes},
};

Payload read_payload(const JsonText& line) {
    const Form* chosen = nullptr;
    for (const Form& form : kForms) {
        if (line.find(form.key) == nullptr) continue;
        if (chosen != nullptr) throw Failure("\"{}\" and \"{}\" cannot stand together", chosen->key, form.key);
        chosen = &form;
    }
    if (chosen == nullptr) throw Failure("the event has no payload: alert, json, text, hex, message or data");
    return chosen->read(*line.find(chosen->key));
}

// --- events ---

// Publishes through `publish`, which is tried again while the bus is full.
template <class Publish>
void publish(Run& run, uint32_t event_id, Publish publish) {
    int32_t answer;
    while ((answer = publish()) == LUMMB_FULL)
        if (run.stop.sleep(kFullPause)) return;
    if (answer == LUMMB_OK) return run.figures.published(event_id);
    if (answer != LUMMB_NOT_SUBSCRIBED) throw Failure("the bus answered {} to event {}", answer, event_id);
    run.figures.not_subscribed(event_id);
    if (run.figures.totals().of(event_id).not_subscribed == 1)
        console::say("line {}: the plug-in does not subscribe to event {}; such events are only counted",
                     run.input->number(), event_id);
}

void publish_bytes(Run& run, uint32_t event_id, const Payload& payload) {
    const char* const data = payload ? payload->data() : nullptr;
    publish(run, event_id, [&] { return run.bus->publish(event_id, data, payload ? payload->size() : 0); });
}

void play_event(Run& run, const JsonText& line) {
    const auto event_id = static_cast<uint32_t>(line.whole("event", 0, kMaxUint32));
    if (event_id == kDnsHit) {
        line.expect_only({"event", "dns"});
        const Member* dns = line.find("dns");
        if (dns == nullptr) throw Failure("event {} needs \"dns\"", event_id);
        const DnsEvent event(dns->raw);
        return publish(run, event_id, [&] { return run.bus->publish_dns(&event.native(), event.query_name()); });
    }
    line.expect_only({"event", "alert", "json", "text", "hex", "message", "data"});
    publish_bytes(run, event_id, read_payload(line));
}

// --- calls ---

void say_answer(const Run& run, const char* function, int answer) {
    if (answer == 0) return;
    console::say("line {}: {} answered {}{}", run.input->number(), function, answer,
                 answer == -2 ? ", the data store is being reset" : "; the log says why");
}

// The plug-in's callback takes no pointer of the host's.
std::atomic<Run*> callback_run = nullptr;

int on_result(int code, uint32_t context, const char* buffer, uint32_t size) {
    try {
        Run& run = *callback_run;
        run.figures.callback();
        run.output->callback(code, context, buffer, size);
    } catch (const std::exception& e) {
        console::say("cannot show the answer to a trace: {}", e.what());
    }
    return 0;
}

void do_sleep(Run& run, const JsonText& line) {
    line.expect_only({"do", "ms"});
    run.stop.sleep(std::chrono::milliseconds{line.whole("ms", 0, std::numeric_limits<int32_t>::max())});
}

void do_wait(Run& run, const JsonText& line) {
    line.expect_only({"do"});
    wait_until_idle(run, false);
}

void do_reset_begin(Run& run, const JsonText& line) {
    line.expect_only({"do"});
    run.reset_open = true;
    run.plugin->reset_db_begin();
}

void do_reset_end(Run& run, const JsonText& line) {
    line.expect_only({"do"});
    run.plugin->reset_db_end();
    run.reset_open = false;
}

// The values go as they stand, so that one that is no string can be tried.
void do_config(Run& run, const JsonText& line) {
    line.expect_only({"do", "delay_time", "queue_size", "text"});
    const std::string* text = line.text("text");
    std::string document;
    if (text == nullptr) {
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
        document = buffer.GetString();
        text = &document;
    }
    say_answer(run, "plugin_configuration_update",
               run.plugin->configuration_update(text->c_str(), static_cast<uint32_t>(text->size())));
}

uint32_t context_of(const JsonText& line) { return static_cast<uint32_t>(line.whole("context", 0, kMaxUint32, 0)); }

void do_file_trace(Run& run, const JsonText& line) {
    line.expect_only({"do", "path", "file_key", "kind", "context"});
    const std::string* path = line.text("path");
    const std::string* file_key = line.text("file_key");
    const auto kind = static_cast<int>(line.whole("kind", INT32_MIN, INT32_MAX, 1));
    const int answer =
        run.plugin->file_trace(on_result, path == nullptr ? nullptr : path->c_str(),
                               file_key == nullptr ? nullptr : file_key->c_str(), kind, context_of(line));
    if (answer == 0) run.figures.file_trace();
    say_answer(run, "reshdl_file_trace", answer);
}

// "data" is a vorn_trace_info in JSON form, for the trace module reads no other; "text", "hex" and "json" give any
// bytes.
void do_process_trace(Run& run, const JsonText& line) {
    line.expect_only({"do", "data", "json", "text", "hex", "context"});
    const Member* data = line.find("data");
    const Payload payload = data != nullptr && data->type != Type::null ? message_bytes(*data) : read_payload(line);
    say_answer(run, "reshdl_process_trace",
               run.plugin->process_trace(on_result, payload ? payload->data() : nullptr,
                                         payload ? static_cast<uint32_t>(payload->size()) : 0, context_of(line)));
}

void do_report(Run& run, const JsonText& line) {
    line.expect_only({"do"});
    if (!run.manager) throw Failure("the agent folder has no libzelbpmgr.so that could collect a report");
    collect_report(run, true);
}

struct Action {
    std::string_view name;
    void (*act)(Run& run, const JsonText& line);
};
constexpr Action kActions[] = {
    {"sleep", do_sleep},   {"wait", do_wait},     {"reset_begin", do_reset_begin},     {"reset_end", do_reset_end},
    {"config", do_config}, {"report", do_report}, {"process_trace", do_process_trace}, {"file_trace", do_file_trace},
};

}  // namespace

void play_line(Run& run, std::string_view text) {
    callback_run = &run;
    const JsonText line(text);
    if (line.find("event") != nullptr) return play_event(run, line);
    if (const std::string* name = line.text("do")) {
        const auto* action = std::ranges::find(kActions, *name, &Action::name);
        if (action != std::end(kActions)) return action->act(run, line);
        std::vector<std::string_view> known;
        for (const Action& each : kActions) known.push_back(each.name);
        throw Failure("\"do\" knows no {}; known: {}", *name, fmt::join(known, ", "));
    }
    // The decoder finds keys in upper and lower case alike.
    for (const char* key : {"alert_type", "rule", "Guid"})
        if (line.has_ignoring_case(key)) return publish_bytes(run, kIoaAlert, std::string(text));
    throw Failure("neither \"event\" nor \"do\" nor an alert document");
}

}  // namespace zel
