#include "host/load/alert_form.h"

#include <fmt/format.h>

#include <iterator>

#include "host/lib/alert.h"

namespace zelhost {
namespace {

// The objects of the event types that a document mixes, with the keys that the decoder of each type asks for.
// One type of event with what a document says of its object. The keys stand as JSON text without
// the braces around them.
struct Object {
    int type;
    // What the decoder asks of each rule beside the keys that Alert writes itself.
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
// The command line has the number of the alert and so differs between alerts. The GUIDs of
// processes repeat: there are 64 of them.
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
// The events of all rules are counted through, so that the rules of an alert do not have the same
// events.
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

}  // namespace

std::string alert_text(const AlertForm& form) {
    Alert alert{.number = static_cast<int64_t>(form.number),
                .type = form.type,
                .container = form.container,
                .rules = {},
                .level = form.level};
    for (int i = 0; i < form.rules; ++i) alert.rules.push_back(rule(form, i));
    // Type 2 asks for memory checks of the processes of its scenario. One process is enough to
    // start that.
    if (form.type == 2) alert.process_set = {event(form.number, 0)};
    return alert.text();
}

}  // namespace zelhost
