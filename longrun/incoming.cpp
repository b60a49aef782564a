#include "longrun/incoming.h"

#include <fmt/format.h>

#include <iterator>
#include <string_view>

#include "host/lib/alert.h"
#include "platform/event_ids.h"

namespace zelhost {
namespace {

// The objects of the event types that a document mixes, with the keys that the decoder of each type asks for.
struct Object {
    int type;
    const char* keys;
};
constexpr Object kObjects[] = {
    {1,
     R"("ObjectPid":4711,"ObjectTid":4711,"ObjectImage":"/usr/bin/curl","ObjectCmd":"curl -o /tmp/.x","ObjectCreateTime":1715000002000,"ObjectUser":"root","ObjectGuid":"6f1b2c3d-0000-4000-8000-000000000002","ObjectMd5":"m","ObjectSha256":"s","DecodedObjectCmd":"","PostOpr":[{"Type":1,"Name":["SubjectPid","ObjectPid"]}])"},
    {6, R"("FileType":"elf","FilePath":"/tmp/.x/kworker")"},
    {14, R"("DstPort":4444,"SrcPort":50022,"DstIp":"198.51.100.9","Protocol":"tcp","SrcIp":"192.0.2.10")"},
    {26, R"("FilePath":"/etc/shadow","FileType":"text")"},
    {8, R"("FileType":"script","OldFilePath":"/tmp/.x/job","NewFilePath":"/etc/cron.hourly/job")"},
};
constexpr const char* kRuleKeys = R"("internal_id":"i","tags":["linux","shell"],"risk_tag":"r","confidence":80)";

// Pids and images repeat within a document, as they do in a real one.
AlertEvent event(uint64_t number, int index) {
    const Object& object = kObjects[static_cast<size_t>(index) % std::size(kObjects)];
    return {.type = object.type,
            .pid = 1000 + static_cast<uint64_t>(index),
            .image = fmt::format("/usr/bin/tool-{}", index % 7),
            .keys = object.keys,
            .op_time = 1715000000000 + index,
            .command = fmt::format("tool -d {}", number),
            .guid = guid_text(number % 64)};
}

// Scores differ from rule to rule, so that the best rule is not always the first.
AlertRule rule(const AlertForm& form, int index) {
    AlertRule rule{
        .id = index == 0 && !form.rule_id.empty() ? form.rule_id : fmt::format("R-{}-{}", form.number, index),
        .status = form.status,
        .events = {},
        .keys = kRuleKeys,
        .score = 5 + index};
    for (int i = 0; i < form.events; ++i) rule.events.push_back(event(form.number, index * form.events + i));
    return rule;
}

// One field of a serialised message: its number, which must be below 16, and its bytes. Written by hand, because a long
// run must also send what a protobuf library would not.
std::string field(uint32_t number, std::string_view bytes) {
    std::string text(1, static_cast<char>(number << 3 | 2));
    uint64_t size = bytes.size();
    for (; size >= 0x80; size >>= 7) text += static_cast<char>((size & 0x7f) | 0x80);
    text += static_cast<char>(size);
    return text.append(bytes);
}

// In vorn_trace_info and threat_alert.
constexpr uint32_t kAgentId = 1, kTaskId = 2, kThreat = 8, kAlertGuid = 2;

}  // namespace

std::string alert_text(const AlertForm& form) {
    Alert alert{.number = static_cast<int64_t>(form.number),
                .type = form.type,
                .container = form.container,
                .rules = {},
                .level = form.level};
    for (int i = 0; i < form.rules; ++i) alert.rules.push_back(rule(form, i));
    if (form.type == 2) alert.process_set = {event(form.number, 0)};
    return alert.text();
}

void Mixture::send(uint32_t id, const std::string& data) { session_.publish(id, data.data(), data.size()); }

void Mixture::send_alert(AlertForm form, uint32_t id) {
    constexpr const char* kLevels[] = {"none", "Verbose", "Low", "Medium", "High", "Critical"};
    // The number makes the GUID, so no two alerts have the same one.
    form.number = next_++;
    form.level = kLevels[below(random_, std::size(kLevels))];
    send(id, alert_text(form));
}

void Mixture::fresh_alert() {
    const int rules = 1 + static_cast<int>(below(random_, 3));
    send_alert({.rules = rules, .events = 1 + static_cast<int>(below(random_, 3))}, event_id::ioa_alert);
}

// There are eight rules in all, so most of these alerts come within a minute of one like them.
void Mixture::repeated_alert() {
    send_alert({.rule_id = fmt::format("R-again-{}", below(random_, 8))}, event_id::ioa_alert);
}

void Mixture::container_alert() { send_alert({.container = "0a1b2c3d4e5f"}, event_id::ioa_alert); }

void Mixture::scenario_alert() { send_alert({.type = 2, .rules = 2, .events = 2}, event_id::ioa_alert); }

// The plug-in drops these while many traces are put off. The ids mix small letters and capitals, because case must not
// count.
void Mixture::busy_rule_alert() {
    send_alert({.type = 2, .rule_id = fmt::format("xdr-IOA-{}", below(random_, 1000)), .events = 2},
               event_id::ioa_alert);
}

void Mixture::trigger_alert() { send_alert({.status = "Trigger"}, event_id::ioa_alert); }

void Mixture::memory_alert() { send_alert({.events = 2}, event_id::memory_trojan); }

// Cut short, with a level in capitals, without a GUID, with a text that no message may carry, without a version.
void Mixture::bad_document() {
    std::string text = alert_text({.number = next_++});
    switch (below(random_, 5)) {
        case 0: text.resize(below(random_, static_cast<uint32_t>(text.size()))); break;
        case 1: text.replace(text.find("risk_level"), 4, "RISK"); break;
        case 2: text.replace(text.find("\"Guid\""), 6, "\"guid-\""); break;
        case 3: text.replace(text.find("tool -d"), 1, "\\u0001"); break;  // no message may carry it
        default: text.replace(text.find("\"version\""), 4, "\"V");
    }
    send(below(random_, 4) == 0 ? event_id::memory_trojan : event_id::ioa_alert, text);
}

// The plug-in does not read the text, so one that is no text does as well.
void Mixture::finding() {
    const char* const text = below(random_, 5) == 0 ? "\x01 not a text" : R"({"src_ip":"198.51.100.7","count":614})";
    send(event_id::port_scan + below(random_, 3), text);
}

// The message is cut at any byte; the plug-in sends what it can read of it.
void Mixture::detection() {
    const std::string message = field(kAgentId, "elsewhere");
    send(event_id::credible_event + below(random_, 2),
         message.substr(0, 1 + below(random_, static_cast<uint32_t>(message.size()))));
}

void Mixture::kov() { send(event_id::kov, field(kThreat, field(kAlertGuid, guid_text(next_++)))); }

void Mixture::expand() { send(event_id::trc_ex, field(kTaskId, "task-4711")); }

void Mixture::ignored() { send(event_id::ignored, "heartbeat"); }

// The first byte sees to it that the rest is neither a message nor a document.
void Mixture::garbage() {
    constexpr uint32_t kIds[] = {event_id::unprocessed,   event_id::ioa_alert,      event_id::unassigned_1537,
                                 event_id::memory_trojan, event_id::credible_event, event_id::event_detect,
                                 event_id::kov,           event_id::trc_ex,         4242};
    std::string bytes(1 + below(random_, 300), '\x07');
    for (size_t i = 1; i < bytes.size(); ++i) bytes[i] = static_cast<char>(below(random_, 256));
    send(kIds[below(random_, std::size(kIds))], bytes);
}

// A null pointer, with a size of 0 or of 100.
void Mixture::no_data() {
    constexpr uint32_t kIds[] = {event_id::ioa_alert,    event_id::memory_trojan, event_id::port_scan,
                                 event_id::event_detect, event_id::kov,           event_id::trc_ex};
    session_.publish(kIds[below(random_, std::size(kIds))], nullptr, below(random_, 2) * 100);
}

void Mixture::fresh_hit() { hit(next_++, below(random_, 5)); }

void Mixture::repeated_hit() { hit(below(random_, 20), 2); }

// Kinds 1, 2 and 3 have a variant record of their own; the others have none.
void Mixture::hit(uint64_t number, uint32_t kind) {
    const std::string domain = fmt::format("host-{}.bad.example", number);
    const ST_DNS_VARIANT_1 one{
        static_cast<uint32_t>(number), 900, {"guid", "/usr/bin/curl", "", "", "curl"}, {"a"}, {}, {}};
    const ST_DNS_VARIANT_2 two{static_cast<uint32_t>(number),
                               900,
                               {"01234567-89ab-cdef-0123-456789abcdef", "/usr/bin/curl", "m", "s", "curl bad", "root"},
                               domain.c_str(),
                               3,
                               "192.0.2.1",
                               0};
    const ST_DNS_VARIANT_3 three{{"a", "b", "c"}, {1, 2}, 3};
    const void* const variants[] = {nullptr, &one, &two, &three, nullptr};
    ST_DNS_NATIVE record{};
    record.uKind = kind;
    record.ullHead[12] = 1715000000000 + below(random_, 100000);
    record.pszText[0] = "repository";
    record.pVariant = variants[kind];
    session_.publish(record, domain.c_str());
}

struct Mixture::Kind {
    uint32_t share;
    void (Mixture::*publish)();
    bool stays = false;  // a node, a tree or a record of it may stay allocated
};
// Each kind with its share. The kinds of which something stays are rare, so that memory does not grow with the length
// of a run.
const Mixture::Kind Mixture::kKinds[] = {
    {30, &Mixture::fresh_alert},
    {12, &Mixture::repeated_alert},
    {6, &Mixture::container_alert},
    {8, &Mixture::scenario_alert},
    {6, &Mixture::busy_rule_alert},
    {3, &Mixture::trigger_alert},
    {10, &Mixture::memory_alert},
    {4, &Mixture::bad_document, true},
    {6, &Mixture::finding},
    {6, &Mixture::detection},
    {6, &Mixture::kov},
    {3, &Mixture::expand},
    {1, &Mixture::ignored, true},
    {3, &Mixture::garbage, true},
    {1, &Mixture::no_data},
    {10, &Mixture::fresh_hit},
    {10, &Mixture::repeated_hit},
};

void Mixture::publish_one() {
    // The sum of all shares.
    constexpr uint32_t kShares = 125;
    uint32_t at = below(random_, kShares);
    // A kind gets as many of the numbers as its share says.
    for (const Kind& kind : kKinds) {
        if (at < kind.share) {
            if (!leaves_nothing_ || !kind.stays) (this->*kind.publish)();
            return;
        }
        at -= kind.share;
    }
}

}  // namespace zelhost
