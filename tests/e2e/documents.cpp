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

std::string event_text(const RawEvent& event) {
    return R"({"version":1,"type":)" + std::to_string(event.type) + R"(,"SubjectPid":)" + std::to_string(event.pid) +
           R"(,"SubjectTid":9,"SubjectCmd":"tool -d","SubjectCreateTime":900,"SubjectUser":"root","SubjectGuid":"g-1",)" +
           R"("SubjectImage":")" + event.image + R"(","OpTime":)" + std::to_string(event.op_time) + "," + event.keys +
           "}";
}

constexpr const char* kFixedKeys = R"({"risk_level":"high","threat_score":70,"total_score":80,"verify_score":1,
    "verify_total_score":2,"count":1,"hash":7,"engine_ver":"e","engine_rule_ver":"er","mounts":"m","user":"u",
    "namespace":"n","imageid":"i","imagetag":"","containername":"c","Capability":"","PortsBinding":"p","ImageName":"in",
    "ContainerInitPid":99,"Privileged":1,"repository":"repo","alert_type":)";

}  // namespace

std::string guid(int number) {
    char text[37];
    snprintf(text, sizeof text, "11111111-2222-4333-8444-%012d", number);
    return text;
}

std::string Alert::text() const {
    const auto rule_text = [&](const Rule& rule) {
        return R"({"rule_id":")" + (rule.id.empty() ? "R-" + std::to_string(number) : rule.id) + R"(","status":")" +
               rule.status + R"(","mitre_id":"T1070","rule_desc":"desc","score":5,"version":"v","rule_name":"name",)" +
               rule.keys + R"(,"event":)" + joined(rule.events, event_text) + "}";
    };
    return kFixedKeys + std::to_string(type) + R"(,"containerid":")" + container + R"(","rule":)" +
           joined(rules, rule_text) + R"(,"ExtendedInfo":{"msg":"m","ScenarioInfo":{"ScenarioID":"S-1","ProcessSet":)" +
           joined(process_set, event_text) + R"(}},"Guid":")" + guid(number) + "\"}";
}

void DnsHit::give(const std::function<void(const ST_DNS_NATIVE&, const char* query_name)>& take) const {
    const ST_DNS_VARIANT_2 process{
        .uPid = pid,
        .llCreateTime = 900,
        .pszProcess = {"01234567-89ab-cdef-0123-456789abcdef", path.c_str(), "", "", "curl bad"},
        .pszDomain = domain.c_str(),
        .uDnsStatus = 3,
        .pszDnsResults = "192.0.2.1",
        .uTail = 0};
    ST_DNS_NATIVE record{};
    record.uKind = 2;
    record.ullHead[12] = time;
    record.uHead[0] = 42;
    record.pszText[0] = "repo";
    record.pszText[5] = "cid";
    record.pVariant = &process;
    take(record, query_name.c_str());
}

}  // namespace e2e
