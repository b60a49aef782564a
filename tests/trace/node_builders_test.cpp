#include <cstring>
#include <span>

#include "decode/document.h"
#include "trace/built.h"

using namespace zel_test;

namespace {

using Builder = uint64_t(ST_QUEQE_NODE&, zel::MallocBuffer&);

Built build(Builder* builder, ST_QUEQE_NODE& node) {
    return zel_test::build([&](Built&, zel::MallocBuffer& buffer) { return builder(node, buffer); });
}

void put(std::span<char> room, const std::string& text) { zel_str_strlcpy(room.data(), text.c_str(), room.size()); }

// A DNS hit with a value of its own in each member.
struct Hit {
    ST_QUEQE_NODE node;
    ST_IOC_MSG& msg = *(node.pIocMsg = std::make_unique<ST_IOC_MSG>());
    // clang-format off
    IocVariant2 area{
        .uPid = 0xFFFFFFFE, .llCreateTime = 5, .szGuid = "pguid", .szPath = "/bin/x", .szMd5 = "md5", .szSha256 = "sha",
        .szCmd = "cmd", .szUser = "root", .szUnread = "\x01", .szDomain = "domain", .nDnsStatus = -4,
        .szDnsResults = "1.2.3.4", .uTail = 1};
    // clang-format on

    Hit() {
        node.ullCacheKey = 77;
        set_guid(node, "0123456789-0123456789-0123456789-123");
        msg.uKind = 1;
        msg.ullHead[12] = 99;
        msg.uHead[0] = 0xFFFFFFFF;
        msg.strQueryName = "bad.example";
        msg.llScore = 90;
        const auto texts = container_texts();
        for (size_t i = 0; i < texts.size(); ++i) put(texts[i], "c" + std::to_string(i));
        put(msg.szUnread1, "\x01");
        put(msg.szUnread2, "\x01");
    }
    // In checking order.
    std::vector<std::span<char>> container_texts() {
        return {msg.szContainerId, msg.szRepository,   msg.szMounts,   msg.szUser,
                msg.szNamespace,   msg.szImageId,      msg.szImageTag, msg.szContainerName,
                msg.szCapability,  msg.szPortsBinding, msg.szImageName};
    }
    // In checking order, the six of the subject first.
    std::vector<std::span<char>> area_texts() {
        return {area.szGuid, area.szPath, area.szMd5,    area.szSha256,
                area.szCmd,  area.szUser, area.szDomain, area.szDnsResults};
    }
    Built built() {
        memcpy(msg.variant, &area, sizeof area);
        return build(CGetProtobuf::GetIocProtobuf, node);
    }
};

TEST(IocBuilder, EveryMemberReachesItsField) {
    ProcessTreeSelectorPeer::take();
    Hit hit;
    hit.msg.szUser[3] = '\x01';  // behind the end of the text
    const Built built = hit.built();
    EXPECT_EQ(
        built.shown,
        "1=me 8={1=1 2=0123456789-0123456789-0123456789-123 3=5 4=90 5=90 8=99 9=99 "
        "11={8={2=2 3=99 4={2=-2 3=pguid 4=/bin/x 5=md5 6=sha 8=cmd 9=root 13=5} 19={2=domain 3=-4 4=1.2.3.4}} 11=100} "
        "14=bad.example 15=77 23=c0 24=c1 25=c2 26=c3 27=c4 28=c5 29=c6 30=c7 31=c8 32=c9 33=c10 34=-1} 16={1=IOC}");
    EXPECT_EQ(built.lines, "");
    EXPECT_EQ(ProcessTreeSelectorPeer::take(), "pid -2 of 5 /bin/x");
    memset(hit.area.szGuid, 'g', sizeof hit.area.szGuid);  // without an end of its own
    EXPECT_THAT(hit.built().shown, testing::HasSubstr(" 3=" + std::string(32, 'g') + "/bin/x 4=/bin/x "));
}

TEST(IocBuilder, TextsAreCheckedInOrder) {
    Hit hit;
    std::vector<std::span<char>> texts = hit.area_texts();
    const auto of_container = hit.container_texts();
    texts.insert(texts.begin(), of_container.begin(), of_container.end());
    texts.insert(texts.begin(), {hit.node.szGuid, hit.msg.strQueryName});
    for (size_t i = 0; i < texts.size(); ++i) put(texts[i], bad_text(i));
    hit.msg.strQueryName = bad_text(1);
    for (size_t i = 0; i < texts.size(); ++i) {
        const std::string of_subject =
            i >= texts.size() - 8 && i < texts.size() - 2 ? "E SetSubjectInfo failed!\n" : "";
        EXPECT_EQ(hit.built().lines, refused(bad_text(i)) + of_subject + kAlertFails);
        texts[i].front() = 'x';
    }
    EXPECT_EQ(hit.built().lines, "");
}

// A node of `id` whose payload and path are `data`.
Built build(Builder* builder, EVENT_ID id, const std::string* data) {
    ST_QUEQE_NODE node;
    node.uEventId = id;
    set_guid(node, "g");
    node.stFileTrace = {data == nullptr ? "" : *data, "key"};
    node.uSize = data == nullptr ? 0 : data->size();
    if (data != nullptr) node.pData = zel::copy_bytes(data->c_str(), data->size() + 1);
    return build(builder, node);
}

TEST(Findings, TravelAsTextUnderTheirCommand) {
    const std::string text = "{\x01";
    const std::pair<EVENT_ID, std::string> rows[] = {
        {event_id::port_scan, "6"}, {event_id::brute_force, "5"}, {event_id::abnormal_login, "7"}};
    for (const auto& [id, command] : rows) {
        const Built built = build(CGetProtobuf::GetBfProtobuf, id, &text);
        EXPECT_EQ(built.shown, "1=me 5=" + command + " 8={} 14={\x01 16={1=AbnormalL}");
        EXPECT_EQ(built.lines, "E Unknown event!\n");
    }
    const Built empty = build(CGetProtobuf::GetBfProtobuf, event_id::brute_force, nullptr);
    EXPECT_EQ(empty.shown, "");
    EXPECT_EQ(empty.lines, "E Unknown event!\nE param is error!\n");
    const Built unknown = build(CGetProtobuf::GetBfProtobuf, event_id::credible_event, &text);
    EXPECT_EQ(unknown.shown, "");
    EXPECT_EQ(unknown.lines, "E Unknown event!\nE GetMainBuf failed!\n");
}

TEST(DetectionResults, GetThisAgentsIdAndTheirCommand) {
    const std::string whole = "\x0A\x05other\x12\x04task\xFA\x3F\x01x";  // agent_id, task_id, and a field unknown here
    const std::string torn = whole + "\x07", broken = "\xFF\xFF";
    const std::string bad = "E param is error!\n";
    const std::tuple<const char*, EVENT_ID, const std::string*, std::string, std::string> rows[] = {
        {"whole", event_id::credible_event, &whole, "1=me 2=task 5=9 1023=x", ""},
        {"other command", event_id::event_detect, &whole, "1=me 2=task 5=10 1023=x", ""},
        {"torn", event_id::credible_event, &torn, "1=me 2=task 5=9 1023=x", bad},
        {"no message", event_id::credible_event, &broken, "1=me 5=9", bad},
        {"no payload", event_id::credible_event, nullptr, "1=me 5=9", ""},
        {"unknown", event_id::abnormal_login, &whole, "", "E Unknown event!\nE GetMainBuf failed!\n"},
    };
    for (const auto& [what, id, payload, shown, lines] : rows) {
        const Built built = build(CGetProtobuf::GetDetanalProtobuf, id, payload);
        EXPECT_EQ(built.shown, shown) << what;
        EXPECT_EQ(built.lines, lines) << what;
    }
    ST_QUEQE_NODE huge;
    huge.uEventId = event_id::credible_event;
    huge.uSize = 0x80000000;
    huge.pData = zel::copy_bytes("", 1);
    EXPECT_EQ(build(CGetProtobuf::GetDetanalProtobuf, huge).lines, bad);
}

TEST(FileTraces, AreAlertsMadeUpAroundThePath) {
    const std::string path = "/p", bad = "\x01", around = "1=me 8={1=15 2=g 3=5 4=100 5=100 11={8={";
    const std::tuple<EVENT_ID, std::string, std::string, std::string> rows[] = {
        {event_id::file_trace_file, path, around + "2=5 10={2=/p}}} 22=key}", ""},
        {event_id::file_trace_process, path, around + "2=1 5={4=/p}}} 22=key}", ""},
        {event_id::file_trace_file, bad, "", refused(bad) + kAlertFails},
        {event_id::file_trace_process, bad, "", refused(bad) + kAlertFails},
        {514, path, "", "E unknown event id:514\n" + kAlertFails},
    };
    for (const auto& [id, data, shown, lines] : rows) {
        const Built built = build(CGetProtobuf::GetFileTraceProtobuf, id, &data);
        EXPECT_EQ(built.shown, shown) << id;
        EXPECT_EQ(built.lines, lines) << id;
    }
    // The GUID is checked before the key, and both before the path.
    ST_QUEQE_NODE node;
    node.uEventId = event_id::file_trace_file;
    set_guid(node, bad_text(0).c_str());
    node.stFileTrace = {bad_text(2), bad_text(1)};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(build(CGetProtobuf::GetFileTraceProtobuf, node).lines, refused(bad_text(i)) + kAlertFails);
        if (i == 0) set_guid(node, "g");
        if (i == 1) node.stFileTrace.strFileKey = "key";
    }
}

}  // namespace
