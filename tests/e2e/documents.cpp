#include "e2e/documents.h"

#include <cstdio>

namespace e2e {
namespace {

template <class List, class Print>
std::string joined(const List& list, Print print) {
    std::string text;
    for (const auto& item : list) text += (text.empty() ? "" : ",") + print(item);
    return "[" + text + "]";
}

std::string events_text(const std::vector<RawEvent>& events) {
    return joined(events, [](const RawEvent& event) { return event.text(); });
}

}  // namespace

std::string guid(int number) {
    char text[37];
    snprintf(text, sizeof text, "11111111-2222-4333-8444-%012d", number);
    return text;
}

std::string RawEvent::text() const {
    return R"({"version":1,"type":)" + std::to_string(type) + R"(,"SubjectPid":)" + std::to_string(pid) +
           R"(,"SubjectTid":9,"SubjectImage":")" + image +
           R"(","SubjectCmd":"tool -d","SubjectCreateTime":900,"SubjectUser":"root","SubjectGuid":"g-1","OpTime":)" +
           std::to_string(op_time) + "," + keys + "}";
}

std::string Alert::text() const {
    const auto rule_text = [&](const Rule& rule) {
        return R"({"rule_id":")" + (rule.id.empty() ? "R-" + std::to_string(number) : rule.id) +
               R"(","mitre_id":"T1070","rule_desc":"desc","status":")" + rule.status +
               R"(","score":5,"version":"v","rule_name":"name",)" + rule.keys + R"(,"event":)" +
               events_text(rule.events) + "}";
    };
    const char* const container_keys =
        R"("mounts":"m","user":"u","namespace":"n","imageid":"i","imagetag":"","containername":"c","Capability":"",
           "PortsBinding":"p","ImageName":"in","ContainerInitPid":99,"Privileged":1,"repository":"repo",)";
    return R"({"alert_type":)" + std::to_string(type) + R"(,"risk_level":")" + level +
           R"(","threat_score":70,"total_score":80,"verify_score":1,"verify_total_score":2,"count":1,"hash":7,
           "engine_ver":"e","engine_rule_ver":"er","containerid":")" +
           container + "\"," + container_keys + R"("rule":)" + joined(rules, rule_text) +
           R"(,"ExtendedInfo":{"msg":"m","ScenarioInfo":{"ScenarioID":"S-1","ProcessSet":)" + events_text(process_set) +
           R"(}},"Guid":")" + guid(number) + "\"}";
}

void DnsHit::give(const std::function<void(const ST_DNS_NATIVE&, const char* query_name)>& publish) const {
    ST_DNS_VARIANT_2 process{};
    process.uPid = pid;
    process.llCreateTime = 900;
    process.pszProcess[0] = "01234567-89ab-cdef-0123-456789abcdef";
    process.pszProcess[1] = path.c_str();
    process.pszProcess[4] = "curl bad";
    process.pszDomain = domain.c_str();
    process.uDnsStatus = 3;
    process.pszDnsResults = "192.0.2.1";
    ST_DNS_NATIVE record{};
    record.uKind = 2;
    record.ullHead[12] = time;
    record.uHead[0] = 42;
    record.pszText[0] = "repo";
    record.pszText[5] = "cid";
    record.pVariant = &process;
    publish(record, query_name.c_str());
}

}  // namespace e2e
