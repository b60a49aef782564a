// The trace that a picture is made of, from lines of JSON or from a serialised message.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/stubs/logging.h>
#include <retrace.pb.h>

#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "host/commands/graph.h"
#include "host/lib/chain.h"
#include "host/lib/chain_text.h"
#include "host/lib/console.h"
#include "host/lib/failure.h"
#include "host/lib/json_text.h"
#include "host/lib/message.h"
#include "host/lib/payload.h"
#include "platform/event_ids.h"

namespace zelhost {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using vorn_retrace::vorn_trace_info;

// --- texts that are no UTF-8 ---

// All texts, at any depth; the schema holds no message within itself, so that the depth has a bound.
// A message inside a message is repaired where it stands.
void repair_texts(Message& message) {
    const auto& access = *message.GetReflection();
    std::vector<const FieldDescriptor*> fields;
    access.ListFields(message, &fields);
    for (const FieldDescriptor* const field : fields) {
        const bool text = field->cpp_type() == FieldDescriptor::CPPTYPE_STRING;
        // Numbers cannot be wrong in this way.
        if (!text && field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) continue;
        if (!field->is_repeated()) {
            if (text)
                access.SetString(&message, field, repair_utf8(access.GetString(message, field)));
            else
                repair_texts(*access.MutableMessage(&message, field));
            continue;
        }
        for (int i = 0; i < access.FieldSize(message, field); ++i) {
            if (text)
                access.SetRepeatedString(&message, field, i, repair_utf8(access.GetRepeatedString(message, field, i)));
            else
                repair_texts(*access.MutableRepeatedMessage(&message, field, i));
        }
    }
}

// What is wrong in a text becomes U+FFFD. Under the rules of proto2 a text may hold any bytes, and the wire is the
// same. False when the bytes are no message.
// The quick way comes first, because most messages are sound.
bool parse(std::string_view bytes, vorn_trace_info& trace) {
    const google::protobuf::LogSilencer quiet;
    if (bytes.size() > std::numeric_limits<int>::max()) return false;
    const int size = static_cast<int>(bytes.size());
    if (trace.ParseFromArray(bytes.data(), size)) return true;
    // The second schema differs in its syntax alone.
    google::protobuf::FileDescriptorProto schema;
    vorn_trace_info::descriptor()->file()->CopyTo(&schema);
    schema.set_syntax("proto2");
    google::protobuf::DescriptorPool pool;
    const auto* const file = pool.BuildFile(schema);
    if (file == nullptr) return false;
    google::protobuf::DynamicMessageFactory factory(&pool);
    const std::unique_ptr<Message> message(factory.GetPrototype(file->FindMessageTypeByName("vorn_trace_info"))->New());
    if (!message->ParseFromArray(bytes.data(), size)) return false;
    repair_texts(*message);
    // The repaired message is sound, so the generated class can read it.
    return trace.ParseFromString(message->SerializeAsString());
}

// --- lines ---

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kSpaces = " \t\r\n";

// Some editors put the mark before the first line.
// The mark is no part of the first line.
std::string_view without_mark(std::string_view text) {
    return text.starts_with(kByteOrderMark) ? text.substr(kByteOrderMark.size()) : text;
}

// Lines begin with a bracket or, in a script, with a comment. No message of the schema begins so, but for one whose
// first text has the right length: a message it is, then.
// The first byte decides. Only where it may be that of a message, the bytes are parsed to see.
bool are_lines(std::string_view bytes) {
    const std::string_view text = without_mark(bytes);
    const size_t first = text.find_first_not_of(kSpaces);
    if (first == std::string_view::npos || (text[first] != '{' && text[first] != '#')) return false;
    vorn_trace_info trace;
    return first == 0 || !parse(bytes, trace);
}

// False when the line is not the one that is looked for.
// `trace` is filled when the line is the one. Throws Failure when the line cannot be read.
bool read_line(std::string_view text, const std::string& guid, vorn_trace_info& trace) {
    const JsonText line(text);
    const auto* const event = line.find("event");
    const auto* const own_guid = line.find("guid");
    if (event == nullptr || event->whole != int64_t{event_id::finished_trace}) return false;
    if (!guid.empty() && (own_guid == nullptr || own_guid->text != guid)) return false;
    const auto* const message = line.find("message");
    const auto* const hex = line.find("hex");
    std::string bytes;
    // The message as a JSON object, or its bytes.
    if (message != nullptr && message->type == JsonText::Type::object) {
        bytes = message_from_json(message->raw);
    } else if (hex != nullptr) {
        // The bytes of a message that could not be shown, as when a text is no UTF-8.
        const std::string payload = fmt::format(R"({{"hex":{}}})", hex->raw);
        bytes = read_payload(JsonText(payload)).value_or("");
    } else {
        throw Failure("it has no message");
    }
    if (!parse(bytes, trace)) throw Failure("its bytes are no vorn_trace_info");
    return true;
}

// Without a GUID a trace that has a chain is looked for: batches of repeated DNS hits are events 770 as well. When none
// has one, the first is taken. Stops at the trace: what comes behind it is of no interest, and so is what may be wrong
// with it.
// The text is walked once. Nothing but the trace is kept of it.
size_t find_in_lines(std::string_view text, const std::string& guid, const std::string& source,
                     vorn_trace_info& trace) {
    // For the failure, which names what was looked for.
    const std::string wanted =
        guid.empty() ? "no line of event 770" : fmt::format("no line of event 770 with the GUID {}", guid);
    size_t skipped = 0;
    size_t number = 0;
    // How many lines were skipped before the first trace; nothing until one was found.
    std::optional<size_t> skipped_before_first;
    vorn_trace_info found;
    for (text = without_mark(text); !text.empty();) {
        // A last line without an end counts as well.
        const size_t end = std::min(text.find('\n'), text.size() - 1);
        const std::string_view line = text.substr(0, end + 1);
        text.remove_prefix(end + 1);
        ++number;
        const size_t first = line.find_first_not_of(kSpaces);
        if (first == std::string_view::npos || line[first] == '#') continue;
        try {
            const size_t size = line.find_last_not_of(kSpaces) + 1 - first;
            // Wrong bytes in the line itself are repaired before it is parsed.
            if (!read_line(repair_utf8(line.substr(first, size)), guid, found)) continue;
            // A GUID is enough to know the trace. Without one the trace must have something to
            // draw.
            const bool wanted_one = !guid.empty() || !chain_of(found).vertices.empty();
            if (wanted_one || !skipped_before_first) trace = found;
            if (wanted_one) return skipped;
            if (!skipped_before_first) skipped_before_first = skipped;
        } catch (const Failure& e) {
            ++skipped;
            console::say("{}, line {} skipped: {}", source, number, e.what());
        }
    }
    if (skipped_before_first) return *skipped_before_first;
    throw Failure("{}: {} among its {} lines; zelhost run writes them", source, wanted, number);
}

}  // namespace

// A file that is empty would be a valid message without anything.
// `source` is for messages. The bytes may be those of a whole file.
size_t find_trace(std::string_view bytes, const std::string& guid, const std::string& source, vorn_trace_info& trace) {
    if (bytes.empty()) throw Failure("{} is empty; a line of event 770 or a serialised message is needed", source);
    if (are_lines(bytes)) return find_in_lines(bytes, guid, source, trace);
    if (!parse(bytes, trace))
        throw Failure(
            "{} holds neither lines as zelhost run writes them nor a serialised message; zelhost decode shows where a "
            "message breaks",
            source);
    if (!guid.empty() && trace.threat().alert_guid() != guid)
        throw Failure("{}: its message is of alert \"{}\", not of {}", source, trace.threat().alert_guid(), guid);
    return 0;
}

}  // namespace zelhost
