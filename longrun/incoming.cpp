#include "incoming.h"

#include <fmt/format.h>

#include <cstdlib>
#include <iterator>
#include <string_view>

#include "event_kinds.h"
#include "rig.h"

namespace zelhost {
namespace {

constexpr const char* kObjects[] = {
    R"("type":1,"ObjectPid":4711,"ObjectTid":4711,"ObjectImage":"/usr/bin/curl","ObjectCmd":"curl -o /tmp/.x","ObjectCreateTime":1715000002000,"ObjectUser":"root","ObjectGuid":"6f1b2c3d-0000-4000-8000-000000000002","ObjectMd5":"m","ObjectSha256":"s","DecodedObjectCmd":"","PostOpr":[{"Type":1,"Name":["SubjectPid","ObjectPid"]}])",
    R"("type":6,"FileType":"elf","FilePath":"/tmp/.x/kworker")",
    R"("type":14,"DstPort":4444,"SrcPort":50022,"DstIp":"198.51.100.9","Protocol":"tcp","SrcIp":"192.0.2.10")",
    R"("type":26,"FilePath":"/etc/shadow","FileType":"text")",
    R"("type":8,"FileType":"script","OldFilePath":"/tmp/.x/job","NewFilePath":"/etc/cron.hourly/job")",
};

std::string event_text(uint64_t number, int index) {
    return fmt::format(
        R"({{"version":1,"SubjectPid":{},"SubjectTid":9,"SubjectImage":"/usr/bin/tool-{}","SubjectCmd":"tool -d {}",)"
        R"("SubjectCreateTime":1715000000123,"SubjectUser":"root","SubjectGuid":"{}","OpTime":{},{}}})",
        1000 + index, index % 7, number, guid_text(number % 64), 1715000000000 + index,
        kObjects[static_cast<size_t>(index) % std::size(kObjects)]);
}

std::string rule_text(const AlertForm& form, int rule) {
    const std::string id =
        rule == 0 && !form.rule_id.empty() ? form.rule_id : fmt::format("R-{}-{}", form.number, rule);
    std::string events;
    for (int i = 0; i < form.events; ++i)
        events += (i > 0 ? "," : "") + event_text(form.number, rule * form.events + i);
    return fmt::format(
        R"({{"rule_id":"{}","mitre_id":"T1059","rule_desc":"a rule","status":"{}","score":{},"version":"1","rule_name":"name",)"
        R"("internal_id":"i","tags":["linux","shell"],"risk_tag":"r","confidence":80,"event":[{}]}})",
        id, form.status, 5 + rule, events);
}

// One field of a serialised message: the number of a field below 16, and its bytes.
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

std::string guid_text(uint64_t number) {
    return fmt::format("5a5a5a5a-0000-4000-{:04x}-{:012x}", number >> 48, number & 0xffffffffffff);
}

uint64_t guid_number(std::string_view guid) {
    return guid.size() < 36 ? UINT64_MAX : strtoull(std::string(guid.substr(24, 12)).c_str(), nullptr, 16);
}

std::string alert_text(const AlertForm& form) {
    std::string rules;
    for (int i = 0; i < form.rules; ++i) rules += (i > 0 ? "," : "") + rule_text(form, i);
    const std::string scenario =
        form.type == 2
            ? fmt::format(R"("ExtendedInfo":{{"msg":"m","ScenarioInfo":{{"ScenarioID":"S-1","ProcessSet":[{}]}}}},)",
                          event_text(form.number, 0))
            : "";
    return fmt::format(
        R"({{"alert_type":{},"risk_level":"{}","threat_score":70,"total_score":80,"verify_score":1,"verify_total_score":2,)"
        R"("count":1,"hash":7,"engine_ver":"e","engine_rule_ver":"er","containerid":"{}","repository":"r","mounts":"m",)"
        R"("user":"u","namespace":"n","imageid":"i","imagetag":"","containername":"c","Capability":"","PortsBinding":"p",)"
        R"("ImageName":"in","ContainerInitPid":99,"Privileged":1,"rule":[{}],{}"Guid":"{}"}})",
        form.type, form.level, form.container, rules, scenario, guid_text(form.number));
}

void Mixture::send(uint32_t id, const std::string& data) { rig_.publish(id, data.data(), data.size()); }

void Mixture::send_alert(AlertForm form, uint32_t id) {
    constexpr const char* kLevels[] = {"none", "Verbose", "Low", "Medium", "High", "Critical"};
    form.number = next_++;
    form.level = kLevels[below(random_, std::size(kLevels))];
    send(id, alert_text(form));
}

void Mixture::fresh_alert() {
    const int rules = 1 + static_cast<int>(below(random_, 3));
    send_alert({.rules = rules, .events = 1 + static_cast<int>(below(random_, 3))}, kIoaAlert);
}

void Mixture::repeated_alert() { send_alert({.rule_id = fmt::format("R-again-{}", below(random_, 8))}, kIoaAlert); }

void Mixture::container_alert() { send_alert({.container = "0a1b2c3d4e5f"}, kIoaAlert); }

void Mixture::scenario_alert() { send_alert({.type = 2, .rules = 2, .events = 2}, kIoaAlert); }

// Filtered while many traces are put off.
void Mixture::busy_rule_alert() {
    send_alert({.type = 2, .rule_id = fmt::format("xdr-IOA-{}", below(random_, 1000)), .events = 2}, kIoaAlert);
}

void Mixture::trigger_alert() { send_alert({.status = "Trigger"}, kIoaAlert); }

void Mixture::memory_alert() { send_alert({.events = 2}, kMemoryTrojan); }

void Mixture::bad_document() {
    std::string text = alert_text({.number = next_++});
    switch (below(random_, 5)) {
        case 0: text.resize(below(random_, static_cast<uint32_t>(text.size()))); break;
        case 1: text.replace(text.find("risk_level"), 4, "RISK"); break;
        case 2: text.replace(text.find("\"Guid\""), 6, "\"guid-\""); break;
        case 3: text.replace(text.find("tool -d"), 1, "\\u0001"); break;  // no message may carry it
        default: text.replace(text.find("\"version\""), 4, "\"V");
    }
    send(below(random_, 4) == 0 ? kMemoryTrojan : kIoaAlert, text);
}

void Mixture::finding() {
    const char* const text = below(random_, 5) == 0 ? "\x01 not a text" : R"({"src_ip":"198.51.100.7","count":614})";
    send(1540 + below(random_, 3), text);
}

void Mixture::detection() {
    const std::string message = field(kAgentId, "elsewhere");
    send(1543 + below(random_, 2), message.substr(0, 1 + below(random_, static_cast<uint32_t>(message.size()))));
}

void Mixture::kov() { send(kKov, field(kThreat, field(kAlertGuid, guid_text(next_++)))); }

void Mixture::expand() { send(kExpand, field(kTaskId, "task-4711")); }

void Mixture::ignored() { send(2304, "heartbeat"); }

// The first byte makes it no message, and no document.
void Mixture::garbage() {
    constexpr uint32_t kIds[] = {534, 1536, 1537, 1538, 1543, 1544, 1793, 1794, 4242};
    std::string bytes(1 + below(random_, 300), '\x07');
    for (size_t i = 1; i < bytes.size(); ++i) bytes[i] = static_cast<char>(below(random_, 256));
    send(kIds[below(random_, std::size(kIds))], bytes);
}

void Mixture::no_data() {
    constexpr uint32_t kIds[] = {1536, 1538, 1540, 1544, 1793, 1794};
    rig_.publish(kIds[below(random_, std::size(kIds))], nullptr, below(random_, 2) * 100);
}

void Mixture::fresh_hit() { hit(next_++, below(random_, 5)); }

void Mixture::repeated_hit() { hit(below(random_, 20), 2); }

// Kinds 1, 2 and 3 have a record of their own, others none.
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
    rig_.publish(record, domain.c_str());
}

struct Mixture::Kind {
    uint32_t share;
    void (Mixture::*publish)();
};
// Rare are those whose nodes or results stay allocated for good.
const Mixture::Kind Mixture::kKinds[] = {
    {30, &Mixture::fresh_alert},
    {12, &Mixture::repeated_alert},
    {6, &Mixture::container_alert},
    {8, &Mixture::scenario_alert},
    {6, &Mixture::busy_rule_alert},
    {3, &Mixture::trigger_alert},
    {10, &Mixture::memory_alert},
    {4, &Mixture::bad_document},
    {6, &Mixture::finding},
    {6, &Mixture::detection},
    {6, &Mixture::kov},
    {3, &Mixture::expand},
    {1, &Mixture::ignored},
    {3, &Mixture::garbage},
    {1, &Mixture::no_data},
    {10, &Mixture::fresh_hit},
    {10, &Mixture::repeated_hit},
};

void Mixture::publish_one() {
    constexpr uint32_t kShares = 125;
    uint32_t at = below(random_, kShares);
    for (const Kind& kind : kKinds) {
        if (at < kind.share) return (this->*kind.publish)();
        at -= kind.share;
    }
}

}  // namespace zelhost
