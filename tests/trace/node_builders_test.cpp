#include <cstring>
#include <span>

#include "decode/processtreeselector.h"
#include "trace/built.h"

using namespace zel_test;

namespace {

using Builder = uint64_t(ST_QUEQE_NODE&, zel::MallocBuffer&);

Built build(Builder* builder, ST_QUEQE_NODE& node) {
    return zel_test::build([&](Built&, zel::MallocBuffer& buffer) { return builder(node, buffer); });
}

void put(std::span<char> room, const std::string& text) { zel_str_strlcpy(room.data(), text.c_str(), room.size()); }

// A DNS hit. Each number has a value of its own; the texts but the query's name are t0, t1 and so on in the order in
// which they are checked.
struct Hit {
    ST_IOC_MSG m;
    IocVariant2 a{};
    ST_QUEQE_NODE node{.ullCacheKey = 77, .pIocMsg = &m, .stFileTrace = {}};
    // clang-format off
    const std::vector<std::span<char>> texts = {
        node.szGuid, m.szContainerId, m.szRepository, m.szMounts, m.szUser, m.szNamespace, m.szImageId,  // 0 to 6
        m.szImageTag, m.szContainerName, m.szCapability, m.szPortsBinding, m.szImageName,                // 7 to 11
        a.szGuid, a.szPath, a.szMd5, a.szSha256, a.szCmd, a.szUser, a.szDomain, a.szDnsResults};         // 12 to 19
    // clang-format on

    Hit() {
        for (size_t i = 0; i < texts.size(); ++i) put(texts[i], 't' + std::to_string(i));
        for (const std::span<char> unread : {std::span<char>(m.szUnread1), {m.szUnread2}, {a.szUnread}})
            put(unread, "\x01");
        m.uKind = 1;
        m.ullHead[12] = 99;
        m.uHead[0] = 0xFFFFFFFF;
        m.strQueryName = "bad.example";
        m.llScore = 90;
        a.uPid = 0xFFFFFFFE;
        a.llCreateTime = 5;
        a.nDnsStatus = -4;
    }
    Built built() {
        memcpy(m.variant, &a, sizeof a);
        return build(CGetProtobuf::GetIocProtobuf, node);
    }
};

TEST(IocBuilder, EveryMemberReachesItsField) {
    ProcessTreeSelector::Instance();  // says that there is no adapter
    Hit hit;
    hit.m.szUser[5] = '\x01';  // behind the end of the text
    const Built built = hit.built();
    EXPECT_EQ(
        built.shown,
        "1=me 8={1=1 2=t0 3=5 4=90 5=90 8=99 9=99 11={8={2=2 3=99 4={2=-2 3=t12 4=t13 5=t14 6=t15 8=t16 9=t17 13=5} "
        "19={2=t18 3=-4 4=t19}} 11=100} 14=bad.example 15=77 23=t1 24=t2 25=t3 26=t4 27=t5 28=t6 29=t7 30=t8 31=t9 "
        "32=t10 33=t11 34=-1} 16={1=IOC}");
    EXPECT_EQ(built.lines, Lines{});
    EXPECT_TRUE(ProcessTreeSelector::Instance().IsSelected());
    memset(hit.a.szGuid, 'g', sizeof hit.a.szGuid);  // without an end of its own
    EXPECT_THAT(hit.built().shown, testing::HasSubstr(" 3=" + std::string(32, 'g') + "t13 4=t13 "));
}

TEST(IocBuilder, ChecksArraysWholeAndContainerTextsToTheirEnd) {
    Hit hit;
    const Lines alert = errors({"GetThreatAlertInfo failed!"});
    const Lines subject = errors({"SetSubjectInfo failed!", "GetThreatAlertInfo failed!"});
    const struct {
        const char* what;
        char& byte;
        const Lines& lines;
    } rows[] = {
        {"GUID", hit.node.szGuid[0], alert},
        {"container text", hit.m.szImageName[0], alert},
        {"end of the subject's GUID", hit.a.szGuid[31], subject},
        {"end of the path", hit.a.szPath[1024], subject},
        {"end of the MD5", hit.a.szMd5[32], subject},
        {"end of the SHA-256", hit.a.szSha256[64], subject},
        {"end of the command", hit.a.szCmd[1024], subject},
        {"end of the user", hit.a.szUser[32], subject},
        {"end of the domain", hit.a.szDomain[63], alert},
        {"end of the results", hit.a.szDnsResults[511], alert},
    };
    for (const auto& row : rows) {
        const char good = std::exchange(row.byte, '\x01');
        Lines lines = hit.built().lines;
        EXPECT_EQ(std::erase_if(lines, [](const LogLine& line) { return line.level == ZEL_LOG_INFO; }), 2U);
        EXPECT_EQ(lines, row.lines) << row.what;
        row.byte = good;
    }
}

TEST(IocBuilder, TextsAreCheckedInOrder) {
    Hit hit;
    for (size_t i = 0; i < hit.texts.size(); ++i) put(hit.texts[i], bad_text(i));
    hit.m.strQueryName = bad_text(99);
    for (size_t i = 0; i < hit.texts.size(); ++i) {
        EXPECT_EQ(hit.built().lines.front(), first_line_about(i));
        put(hit.texts[i], "");
        if (i > 0) continue;
        EXPECT_EQ(hit.built().lines.front(), first_line_about(99)) << "behind the GUID";
        hit.m.strQueryName = "";
    }
    EXPECT_EQ(hit.built().lines, Lines{});
}

// Builders that need no more than an event id and a payload: the text of a finding, the message of a detection result,
// the path of a file trace.
TEST(SmallBuilders, FillWhatTheEventAsksFor) {
    using namespace event_id;
    const auto bf = CGetProtobuf::GetBfProtobuf, detanal = CGetProtobuf::GetDetanalProtobuf;
    const auto file = CGetProtobuf::GetFileTraceProtobuf;
    const std::string unknown = "Unknown event!", param = "param is error!", main_buf = "GetMainBuf failed!";
    const std::string alert = "GetThreatAlertInfo failed!", around = "1=me 8={1=15 2=g 3=5 4=100 5=100 11={8={";
    const std::string text = "{\x01", path = "/p", bad = "\x01", broken = "\xFF\xFF", empty;
    const std::string whole = "\x0A\x05other\x12\x04task\xFA\x3F\x01x";  // agent_id, task_id, and a field unknown here
    const std::string torn = whole + "\x07";
    const struct {
        const char* what;
        Builder* builder;
        EVENT_ID id;
        const std::string& payload;
        std::string shown;
        Lines lines;
    } rows[] = {
        // clang-format off
        {"scan", bf, port_scan, text, "1=me 5=6 8={} 14={\x01 16={1=AbnormalL}", errors({unknown})},
        {"brute force", bf, brute_force, text, "1=me 5=5 8={} 14={\x01 16={1=AbnormalL}", errors({unknown})},
        {"login", bf, abnormal_login, text, "1=me 5=7 8={} 14={\x01 16={1=AbnormalL}", errors({unknown})},
        {"finding without text", bf, brute_force, empty, "", errors({unknown, param})},
        {"no finding", bf, credible_event, text, "", errors({unknown, main_buf})},
        {"result", detanal, credible_event, whole, "1=me 2=task 5=9 1023=x", {}},
        {"other command", detanal, event_detect, whole, "1=me 2=task 5=10 1023=x", {}},
        {"torn result", detanal, credible_event, torn, "1=me 2=task 5=9 1023=x", errors({param})},
        {"no message", detanal, credible_event, broken, "1=me 5=9", errors({param})},
        {"result without message", detanal, credible_event, empty, "1=me 5=9", {}},
        {"no result", detanal, abnormal_login, whole, "", errors({unknown, main_buf})},
        {"file", file, file_trace_file, path, around + "2=5 10={2=/p}}} 22=key}", {}},
        {"processes", file, file_trace_process, path, around + "2=1 5={4=/p}}} 22=key}", {}},
        {"refused path of a file", file, file_trace_file, bad, "", refused({alert})},
        {"refused path of processes", file, file_trace_process, bad, "", refused({alert})},
        {"no file trace", file, 514, path, "", errors({"unknown event id:514", alert})},
        // clang-format on
    };
    for (const auto& row : rows) {
        ST_QUEQE_NODE node{.uEventId = row.id,
                           .szGuid = "g",
                           .stFileTrace = {row.payload, "key"},
                           .uSize = row.payload.size(),
                           .pData = row.payload.empty() ? nullptr : const_cast<char*>(row.payload.c_str())};
        const Built built = build(row.builder, node);
        EXPECT_EQ(built.shown, row.shown) << row.what;
        EXPECT_EQ(built.lines, row.lines) << row.what;
    }
}

TEST(SmallBuilders, TakeAPayloadOf2GibibytesAsUnreadable) {
    char byte = 0;
    ST_QUEQE_NODE node{.uEventId = event_id::credible_event, .stFileTrace = {}, .uSize = 0x80000000, .pData = &byte};
    EXPECT_EQ(build(CGetProtobuf::GetDetanalProtobuf, node).lines, errors({"param is error!"}));
}

}  // namespace
