// The schemas of the lines that `run` reads and writes. One row tells about one key; which lines there are follows from
// the rows. What holds between keys stands in code.
#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <string_view>

#include "host/commands/schema.h"
#include "platform/event_ids.h"

namespace zelhost {
namespace {

using json::Members;

// Members of a schema for a value.
// Each is put into the schema of a value as it stands here.
constexpr const char* kAny = "";
constexpr const char* kNull = R"("type":"null")";
constexpr const char* kText = R"("type":"string")";
constexpr const char* kTextOrNull = R"("type":["string","null"])";
constexpr const char* kBoolean = R"("type":"boolean")";
constexpr const char* kHex = R"("type":"string","pattern":"^([0-9A-Fa-f]{2})*$")";
constexpr const char* kUint32 = R"("type":"integer","minimum":0,"maximum":4294967295)";
constexpr const char* kInt32 = R"("type":"integer","minimum":-2147483648,"maximum":2147483647)";
constexpr const char* kWhole = R"("type":"integer","minimum":-9223372036854775808,"maximum":18446744073709551615)";
constexpr const char* kMilliseconds = R"("type":"integer","minimum":0,"maximum":2147483647)";
constexpr const char* kTexts = R"("type":"array","items":{"type":["string","null"]})";
constexpr const char* kNumbers = R"("type":"array","items":{"type":"integer"})";
constexpr const char* kKeyNames = R"("type":"array","items":{"type":"string"},"minItems":1)";
constexpr const char* kMessage = R"("type":"object","$ref":"#/$defs/vorn_trace_info")";
constexpr const char* kMessageOrNull = R"("anyOf":[{"type":"null"},{"$ref":"#/$defs/vorn_trace_info"}])";
constexpr const char* kDns = R"("type":"object","$ref":"#/$defs/dns")";
constexpr const char* kMemoryCheck = R"("$ref":"#/$defs/memory_check")";

// Whether a key must stand in its line.
enum class Presence { needed, optional };
using enum Presence;

// One key of one kind of line. Rows of one line stand together.
struct LineKey {
    std::string_view line;  // a definition
    std::string_view key;
    const char* value;
    Presence presence;
    const char* words;
    int most = 0;  // elements of a list, if there is a limit
};

// A line of an action has the name of the action, and "do" besides its own keys. A row without a key is about the line.
constexpr LineKey kInput[] = {
    {"event", "", kAny, optional, "Publish an event with one of the forms of payload."},
    {"event", "event", kUint32, needed, "The number of the event."},
    {"event", "alert", kAny, optional,
     "An alert document; its very bytes are the payload. zelhost schema document describes it."},
    {"event", "json", kAny, optional, "Any value; its very bytes are the payload."},
    {"event", "text", kText, optional, "The payload as a text."},
    {"event", "hex", kHex, optional, "The payload in pairs of hexadecimal digits."},
    {"event", "message", kMessage, optional,
     "A vorn_trace_info in protobuf's JSON form; the payload is its wire form."},
    {"event", "data", kNull, optional, "No payload: a null pointer of size 0."},

    {"dns_event", "", kAny, optional, "Publish a DNS hit."},
    {"dns_event", "event", kUint32, needed, "The number of the event, a DNS hit."},
    {"dns_event", "dns", kDns, needed, "The native record of the hit."},
    {"dns", "", kAny, optional, "A DNS hit. What is left out is 0 or null."},
    {"dns", "kind", kWhole, optional,
     "Which variant record there is: 1, 2 or 3; 2 when absent, and none for another number."},
    {"dns", "variant", kBoolean, optional, "false for a record without its variant record."},
    {"dns", "head", kNumbers, optional, "The numbers of the head; the last one is the time.", 13},
    {"dns", "time", kWhole, optional, "When the name was asked for, in milliseconds since 1970."},
    {"dns", "uhead", kNumbers, optional, "The short numbers of the head.", 3},
    {"dns", "texts", kTexts, optional, "The texts of the head.", 13},
    {"dns", "pid", kWhole, optional, "The id of the process that asked; kinds 1 and 2."},
    {"dns", "create_time", kWhole, optional,
     "When that process was started, in milliseconds since 1970; kinds 1 and 2."},
    {"dns", "guid", kTextOrNull, optional, "The process's GUID; kinds 1 and 2."},
    {"dns", "path", kTextOrNull, optional, "The path of the process's program; kinds 1 and 2."},
    {"dns", "md5", kTextOrNull, optional, "The MD5 of the program; kinds 1 and 2."},
    {"dns", "sha256", kTextOrNull, optional, "The SHA-256 of the program; kinds 1 and 2."},
    {"dns", "cmd", kTextOrNull, optional, "The process's command line; kinds 1 and 2."},
    {"dns", "user", kTextOrNull, optional, "The user that the process runs as; kinds 1 and 2."},
    {"dns", "extra", kTextOrNull, optional, "The last text about the process; kinds 1 and 2."},
    {"dns", "domain", kTextOrNull, optional, "The name that was asked for; kind 2."},
    {"dns", "query_name", kTextOrNull, optional,
     "The name that the event answers with when it is asked; the domain when absent."},
    {"dns", "status", kWhole, optional, "The status of the answer; kind 2."},
    {"dns", "results", kTextOrNull, optional, "The addresses of the answer; kind 2."},
    {"dns", "number", kWhole, optional, "The last number of the record; kind 2."},
    {"dns", "tail", kTexts, optional, "The last texts of the record; kinds 1 and 3.", 3},
    {"dns", "shorts", kNumbers, optional, "Short numbers; kinds 1 and 3.", 2},
    {"dns", "longs", kNumbers, optional, "Long numbers; kinds 1 and 3, of which kind 3 takes one.", 2},

    {"sleep", "", kAny, optional, "Wait before the next line."},
    {"sleep", "ms", kMilliseconds, needed, "How long, in milliseconds."},
    {"wait", "", kAny, optional, "Wait until nothing is on its way but traces."},
    {"reset_begin", "", kAny, optional, "Begin a reset of the data store."},
    {"reset_end", "", kAny, optional, "End it."},
    {"report", "", kAny, optional, "Ask the plug-in for its statistics."},
    {"config", "", kAny, optional, "Change the plug-in's live limits."},
    {"config", "delay_time", kAny, optional, "The longest predicted backlog of traces, in milliseconds, as a text."},
    {"config", "queue_size", kAny, optional, "The limit of each queue, as a text."},
    {"config", "text", kTextOrNull, optional, "The whole document of the update, in place of the two."},
    {"file_trace", "", kAny, optional, "Ask for the chain of a file."},
    {"file_trace", "path", kTextOrNull, optional, "The path of the file."},
    {"file_trace", "file_key", kTextOrNull, optional, "The key of the file."},
    {"file_trace", "kind", kInt32, optional,
     "1, as when absent, for the file, otherwise for the processes of the path."},
    {"file_trace", "context", kUint32, optional, "A number that comes back with the answer; 0 when absent."},
    {"process_trace", "", kAny, optional, "Ask for the chain of a process."},
    {"process_trace", "data", kMessageOrNull, optional, "The request, a vorn_trace_info; null for none."},
    {"process_trace", "json", kAny, optional, "Any value, whose very bytes are the request."},
    {"process_trace", "text", kText, optional, "The request as a text."},
    {"process_trace", "hex", kHex, optional, "The request in pairs of hexadecimal digits."},
    {"process_trace", "context", kUint32, optional, "A number that comes back with the answer; 0 when absent."},
};

constexpr LineKey kOutput[] = {
    {"message", "", kAny, optional, "An outgoing event with a message."},
    {"message", "event", kUint32, needed,
     "The number of the event: 769 a first report, 770 a trace, 771 a detection result."},
    {"message", "source", kUint32, needed, "The number of the event that it comes from."},
    {"message", "guid", kTextOrNull, needed, "The GUID of the alert."},
    {"message", "size", kUint32, needed, "The size of the message on the bus, in bytes."},
    {"message", "message", kMessageOrNull, needed, "The message; null when its bytes are none."},
    {"message", "hex", kHex, optional, "The bytes of what is no message."},
    {"message", "latin1", kKeyNames, optional, "Keys whose text is no UTF-8: each byte is written as one character."},

    {"memory_check_event", "", kAny, optional, "The request to check the memory of a process, event 2305."},
    {"memory_check_event", "event", kUint32, needed, "The number of the event."},
    {"memory_check_event", "memory_check", kMemoryCheck, needed, "Whose memory is to be checked."},
    {"memory_check_event", "latin1", kKeyNames, optional,
     "Keys whose text is no UTF-8: each byte is written as one character."},
    {"memory_check", "", kAny, optional, "The process, and the container that it runs in."},
    {"memory_check", "op_time", kWhole, needed, "When the event happened, in milliseconds since 1970."},
    {"memory_check", "pid", kUint32, needed, "The process id."},
    {"memory_check", "create_time", kWhole, needed, "When the process was started, in milliseconds since 1970."},
    {"memory_check", "path", kTextOrNull, needed, "The path of the process's program."},
    {"memory_check", "confidence", kInt32, needed, "How sure the engine is, in percent."},
    {"memory_check", "container_init_pid", kUint32, needed, "The process id of the container's first process."},
    {"memory_check", "privileged", kUint32, needed, "1 for a privileged container, otherwise 0."},
    {"memory_check", "repository", kTextOrNull, needed, "The repository of the container's image."},
    {"memory_check", "mounts", kTextOrNull, needed, "What is mounted in the container."},
    {"memory_check", "user", kTextOrNull, needed, "The user that the container runs as."},
    {"memory_check", "namespace", kTextOrNull, needed, "The namespace of the container."},
    {"memory_check", "image_id", kTextOrNull, needed, "The id of the container's image."},
    {"memory_check", "container_id", kTextOrNull, needed, "The id of the container, or \"host\"."},
    {"memory_check", "image_tag", kTextOrNull, needed, "The tag of the container's image."},
    {"memory_check", "image_name", kTextOrNull, needed, "The name of the container's image."},
    {"memory_check", "container_name", kTextOrNull, needed, "The name of the container."},
    {"memory_check", "capability", kTextOrNull, needed, "The capabilities that the container was given."},
    {"memory_check", "ports_binding", kTextOrNull, needed, "The ports of the container that are bound on the host."},

    {"callback", "", kAny, optional, "The answer to a trace that the script asked for."},
    {"callback", "callback", kInt32, needed, "The code of the answer: 8 for a file, 10 for a process."},
    {"callback", "context", kUint32, needed, "The number that came with the request."},
    {"callback", "size", kUint32, needed, "The size of the answer, in bytes."},
    {"callback", "message", kMessageOrNull, needed, "The chain; null when there is none or the bytes are no message."},
    {"callback", "hex", kHex, optional, "The bytes of what is no message."},

    {"report", "", kAny, optional, "The statistics that the script asked for."},
    {"report", "report", kText, needed, "The module that reports."},
    {"report", "text", kText, needed, "The statistics as the module gives them."},
    {"report", "latin1", kKeyNames, optional, "Keys whose text is no UTF-8: each byte is written as one character."},
};

// What in the input is no action.
constexpr std::string_view kNoActions[] = {"event", "dns_event", "dns"};

// A value that must be exactly this one.
std::string constant(const std::string& value) { return json::object({{"const", value}}); }

// The names of all definitions, in the order of the rows.
// Rows of one definition stand side by side, so that one look back is enough.
std::vector<std::string_view> names_of(std::span<const LineKey> rows) {
    std::vector<std::string_view> names;
    for (const LineKey& row : rows)
        if (names.empty() || names.back() != row.line) names.push_back(row.line);
    return names;
}

// The words, the type, and the limit of a list.
std::string value_of(const LineKey& row) {
    std::string members = R"("description":)" + json::text(row.words);
    if (*row.value != '\0') members += ',' + std::string(row.value);
    if (row.most > 0) members += fmt::format(R"(,"maxItems":{})", row.most);
    return '{' + members + '}';
}

// A definition from its rows. Unknown keys are refused: `run` refuses them in its input, and writes none.
// `properties` are those that the rows do not have.
Members definition(std::span<const LineKey> rows, std::string_view name, Members properties = {}) {
    Members members;
    std::vector<std::string> required;
    for (const LineKey& row : rows) {
        if (row.line != name) continue;
        // The row without a key describes the definition itself.
        if (row.key.empty()) {
            members.emplace_back("description", json::text(row.words));
            continue;
        }
        properties.emplace_back(row.key, value_of(row));
        if (row.presence == needed) required.emplace_back(row.key);
    }
    members.emplace_back("type", json::text("object"));
    members.emplace_back("properties", json::object(properties));
    if (!required.empty()) members.emplace_back("required", json::texts(required));
    members.emplace_back("additionalProperties", "false");
    return members;
}

// Exactly one of the keys stands in the line.
// As a list of conditions of which one must hold.
std::string one_of(const std::vector<std::string>& keys) {
    std::vector<std::string> parts;
    std::ranges::transform(keys, std::back_inserter(parts),
                           [](const std::string& key) { return json::object({{"required", json::texts({key})}}); });
    return json::list(parts);
}

// All other lines of the input are called by their names.
bool is_action(std::string_view name) { return std::ranges::find(kNoActions, name) == std::end(kNoActions); }

// The definitions of messages stand behind those of the lines.
std::string schema_text(Members head, Members&& definitions, Members&& messages) {
    std::ranges::move(messages, std::back_inserter(definitions));
    head.emplace_back("$defs", json::object(definitions));
    return json::object(head);
}

// Which definition a line has is decided as `run` decides it: "event" first, then "do", then an alert document.
// An event of the one kind has a record, all others a payload.
Members input_lines(const std::vector<std::string>& actions, const std::string& action_rules) {
    const std::string is_dns = has("event", constant(std::to_string(event_id::ioc)));
    const std::string event =
        json::object({{"if", is_dns}, {"then", refer_to("dns_event")}, {"else", refer_to("event")}});
    const std::string known =
        json::object({{"properties", json::object({{"do", json::object({{"enum", json::texts(actions)}})}})},
                      {"allOf", action_rules}});
    const std::string other = json::object(
        {{"if", has("do", R"({"not":{"type":"null"}})")}, {"then", known}, {"else", refer_to("alert_document")}});
    return {{"type", json::text("object")},
            {"if", json::object({{"required", json::texts({"event"})}})},
            {"then", event},
            {"else", other}};
}

constexpr const char* kInputWords =
    "A line of a script that zelhost run reads. Blank lines and lines that begin with # are left out. A line that is "
    "itself an alert document is event 1536.";
constexpr const char* kDocumentWords =
    "An alert document without an envelope, known by one of these keys. zelhost schema document describes it.";
constexpr const char* kOutputWords =
    "A line that zelhost run writes: an outgoing event, the answer to a trace, or a report. Messages are in protobuf's "
    "JSON form, with names as in the message schema and numbers of 64 bits as texts; fields that are 0 or empty are "
    "left out.";

}  // namespace

std::string input_schema() {
    // The names of the actions, and what each of them asks for.
    std::vector<std::string> actions;
    std::vector<std::string> action_rules;
    Members definitions;
    for (const std::string_view name : names_of(kInput)) {
        Members own;
        // An action has "do" besides its own keys.
        if (is_action(name)) {
            actions.emplace_back(name);
            action_rules.push_back(
                json::object({{"if", has("do", constant(json::text(name)))}, {"then", refer_to(name)}}));
            own.emplace_back("do", constant(json::text(name)));
        }
        Members members = definition(kInput, name, own);
        if (name == "event") members.emplace_back("oneOf", one_of({"alert", "json", "text", "hex", "message", "data"}));
        // Beside a message the other forms are not looked at.
        if (name == "process_trace")
            members.emplace_back("anyOf",
                                 json::list({has("data", R"({"type":"object"})"),
                                             json::object({{"oneOf", one_of({"data", "json", "text", "hex"})}})}));
        definitions.emplace_back(name, json::object(members));
    }
    definitions.emplace_back("alert_document", json::object({{"description", json::text(kDocumentWords)},
                                                             {"anyOf", one_of({"alert_type", "rule", "Guid"})}}));
    Members head = schema_head("Line of a script", kInputWords);
    std::ranges::move(input_lines(actions, json::list(action_rules)), std::back_inserter(head));
    return schema_text(std::move(head), std::move(definitions), message_definitions(MessageForm::read));
}

std::string output_schema() {
    // All definitions of the output stand in the rows.
    Members definitions;
    for (const std::string_view name : names_of(kOutput))
        definitions.emplace_back(name, json::object(definition(kOutput, name)));
    Members head = schema_head("Line of the output", kOutputWords);
    head.emplace_back("oneOf", json::list({refer_to("message"), refer_to("memory_check_event"), refer_to("callback"),
                                           refer_to("report")}));
    return schema_text(std::move(head), std::move(definitions), message_definitions(MessageForm::written));
}

}  // namespace zelhost
