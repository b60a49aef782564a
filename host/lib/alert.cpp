// All texts go into the document as they are, without escapes: who wants a bad document gives bad texts.
#include "host/lib/alert.h"

#include <fmt/format.h>

#include <charconv>

namespace zelhost {
namespace {

// The last group of a GUID has 12 hexadecimal digits, which are 48 bits; what a number has above them goes into the
// first group.
constexpr uint64_t kLow48 = 0xffff'ffff'ffff;
constexpr size_t kGuidSize = 36;
constexpr size_t kNumberDigits = 12;

// With commas between, without brackets.
// `print` makes the text of one item.
template <class List, class Print>
std::string joined(const List& list, Print print) {
    std::string text;
    for (const auto& item : list) text += (text.empty() ? "" : ",") + print(item);
    return text;
}

// The keys that every event has, and behind them those of its type.
std::string event_text(const AlertEvent& event) {
    return fmt::format(
        R"({{"version":1,"type":{},"SubjectPid":{},"SubjectTid":9,"SubjectCmd":"{}","SubjectCreateTime":900,)"
        R"("SubjectUser":"root","SubjectGuid":"{}","SubjectImage":"{}","OpTime":{},{}}})",
        event.type, event.pid, event.command, event.guid, event.image, event.op_time, event.keys);
}

// The repeat filter makes its key of rule ids and images, so that an id of its own makes an alert a new one.
std::string rule_text(const AlertRule& rule, int64_t number) {
    return fmt::format(
        R"({{"rule_id":"{}","status":"{}","mitre_id":"T1070","rule_desc":"desc","score":{},"version":"v",)"
        R"("rule_name":"name",{},"event":[{}]}})",
        rule.id.empty() ? fmt::format("R-{}", number) : rule.id, rule.status, rule.score, rule.keys,
        joined(rule.events, event_text));
}

// An alert that names a container is not traced; "host" as its id stands for none.
constexpr const char* kContainerKeys =
    R"("mounts":"m","user":"u","namespace":"n","imageid":"i","imagetag":"","containername":"c","Capability":"",)"
    R"("PortsBinding":"p","ImageName":"in","ContainerInitPid":99,"Privileged":1,"repository":"repo","containerid":")";

}  // namespace

// The upper 16 bits go into the first group, the rest into the last. Numbers of up to 48 bits
// differ in the last group alone.
std::string guid_text(uint64_t number) {
    return fmt::format("{:08x}-2222-4333-8444-{:012x}", 0x11111111 + (number >> 48), number & kLow48);
}

uint64_t guid_number(std::string_view guid) {
    // A text that is shorter than a GUID has no number.
    uint64_t number = UINT64_MAX;
    if (guid.size() < kGuidSize) return number;
    const char* const end = guid.data() + kGuidSize;
    std::from_chars(end - kNumberDigits, end, number, 16);
    return number;
}

// The parts that `details` asks for stand in several places of the document. An alert without them
// is a short one.
std::string Alert::text() const {
    const std::string scenario =
        details
            ? fmt::format(R"("ExtendedInfo":{{"msg":"m","ScenarioInfo":{{"ScenarioID":"S-1","ProcessSet":[{}]}}}},)",
                          joined(process_set, event_text))
            : "";
    return fmt::format(
        R"({{"risk_level":"{}","threat_score":70,"total_score":80,"verify_score":{},"verify_total_score":{},"count":1,)"
        R"("hash":7,"engine_ver":"e","engine_rule_ver":"er","alert_type":{},{}"rule":[{}],{}"Guid":"{}"}})",
        level, details ? 1 : 0, details ? 2 : 0, type, details ? kContainerKeys + container + "\"," : "",
        joined(rules, [this](const AlertRule& rule) { return rule_text(rule, number); }), scenario,
        guid_text(static_cast<uint64_t>(number)));
}

}  // namespace zelhost
