#include <cstring>

#include "decode/processtreeselector.h"
#include "trace/built.h"

using namespace zel_test;

namespace {

using Builder = uint64_t(ST_QUEQE_NODE&, zel::MallocBuffer&);

Built build(Builder* builder, ST_QUEQE_NODE& node) {
    return zel_test::build([&](Built&, zel::MallocBuffer& buffer) { return builder(node, buffer); });
}

// A DNS hit whose container texts are their numbers.
struct Hit {
    ST_QUEQE_NODE node;
    ST_IOC_MSG& msg = *(node.pIocMsg = std::make_unique<ST_IOC_MSG>());
    IocVariant2 area{0xFFFFFFFE, 5, "pguid", "/bin/x", "md5", "sha", "x", "root", "\x01", "dom", -4, "1.2.3.4", 1};

    Hit() {
        node.ullCacheKey = 77;
        set_guid(node, "0123456789-0123456789-0123456789-123");
        msg = {1,   {},  {},   "1",  "2",    "3",    "4", "5",           "6", "7",
               "8", "9", "10", "11", "\x01", "\x01", {},  "bad.example", 90,  0};
        msg.ullHead[12] = 99;
        msg.uHead[0] = 0xFFFFFFFF;
    }
    Built built() {
        memcpy(msg.variant, &area, sizeof area);
        return build(CGetProtobuf::GetIocProtobuf, node);
    }
};

TEST(IocBuilder, EveryMemberReachesItsField) {
    ProcessTreeSelector::Instance();  // says that there is no adapter
    Hit hit;
    hit.msg.szRepository[2] = '\x01';  // behind the text
    const Built built = hit.built();
    EXPECT_EQ(
        built.shown,
        "1=me 8={1=1 2=0123456789-0123456789-0123456789-123 3=5 4=90 5=90 8=99 9=99 11={8={2=2 3=99 4={2=-2 3=pguid "
        "4=/bin/x 5=md5 6=sha 8=x 9=root 13=5} 19={2=dom 3=-4 4=1.2.3.4}} 11=100} 14=bad.example 15=77 23=6 24=1 "
        "25=2 26=3 27=4 28=5 29=7 30=9 31=10 32=11 33=8 34=-1} 16={1=IOC}");
    EXPECT_EQ(built.lines, Lines{});
    EXPECT_TRUE(ProcessTreeSelector::Instance().IsSelected());
    memset(hit.area.szGuid, 'g', sizeof hit.area.szGuid);  // without an end of its own
    EXPECT_THAT(hit.built().shown, testing::HasSubstr(" 3=" + std::string(32, 'g') + "/bin/x 4=/bin/x "));
}

TEST(IocBuilder, ChecksArraysWhole) {
    Hit hit;
    const Lines alert = errors({"GetThreatAlertInfo failed!"});
    const Lines subject = errors({"SetSubjectInfo failed!", "GetThreatAlertInfo failed!"});
    const std::tuple<int, char&, const Lines&> rows[] = {
        {__LINE__, hit.node.szGuid[0], alert},         {__LINE__, hit.msg.strQueryName[0], alert},
        {__LINE__, hit.msg.szImageName[0], alert},     {__LINE__, hit.area.szGuid[31], subject},
        {__LINE__, hit.area.szPath[1024], subject},    {__LINE__, hit.area.szMd5[32], subject},
        {__LINE__, hit.area.szSha256[64], subject},    {__LINE__, hit.area.szCmd[1024], subject},
        {__LINE__, hit.area.szUser[32], subject},      {__LINE__, hit.area.szDomain[63], alert},
        {__LINE__, hit.area.szDnsResults[511], alert},
    };
    for (const auto& [line, byte, chain] : rows) {
        const char good = std::exchange(byte, '\x01');
        Lines lines = hit.built().lines;
        EXPECT_EQ(std::erase_if(lines, [](const LogLine& one) { return one.level == ZEL_LOG_INFO; }), 2U);
        EXPECT_EQ(lines, chain) << "line " << line;
        byte = good;
    }
}

// Findings, detection results and file traces, by event id and payload.
TEST(SmallBuilders, Table) {
    const auto bf = CGetProtobuf::GetBfProtobuf, detanal = CGetProtobuf::GetDetanalProtobuf;
    const auto file = CGetProtobuf::GetFileTraceProtobuf;
    const std::string alert = "GetThreatAlertInfo failed!", param = "param is error!", main_buf = "GetMainBuf failed!";
    const std::string unknown = "Unknown event!";
    const std::string whole = "\x0A\x05other\x12\x04task\xFA\x3F\x01x";  // agent_id, task_id, and a field unknown here
    const std::string torn = whole + "\x07";
    const std::tuple<int, Builder*, EVENT_ID, const char*, uint64_t, std::string, Lines> rows[] = {
        {__LINE__, bf, 1540, "{\x01", 2, "1=me 5=6 8={} 14={\x01 16={1=AbnormalL}", errors({unknown})},
        {__LINE__, bf, 1541, "{\x01", 2, "1=me 5=5 8={} 14={\x01 16={1=AbnormalL}", errors({unknown})},
        {__LINE__, bf, 1542, "{\x01", 2, "1=me 5=7 8={} 14={\x01 16={1=AbnormalL}", errors({unknown})},
        {__LINE__, bf, 1541, nullptr, 0, "", errors({unknown, param})},
        {__LINE__, bf, 1543, "{}", 2, "", errors({unknown, main_buf})},
        {__LINE__, detanal, 1543, whole.data(), whole.size(), "1=me 2=task 5=9 1023=x", {}},
        {__LINE__, detanal, 1544, whole.data(), whole.size(), "1=me 2=task 5=10 1023=x", {}},
        {__LINE__, detanal, 1543, torn.data(), torn.size(), "1=me 2=task 5=9 1023=x", errors({param})},
        {__LINE__, detanal, 1543, "\xFF\xFF", 2, "1=me 5=9", errors({param})},
        {__LINE__, detanal, 1543, nullptr, 0, "1=me 5=9", {}},
        {__LINE__, detanal, 1543, "", 0x80000000, "1=me 5=9", errors({param})},
        {__LINE__, detanal, 1542, "", 0, "", errors({unknown, main_buf})},
        {__LINE__, file, 518, "/p", 0, "1=me 8={1=15 2=g 3=5 4=100 5=100 11={8={2=5 10={2=/p}}} 22=key}", {}},
        {__LINE__, file, 513, "/p", 0, "1=me 8={1=15 2=g 3=5 4=100 5=100 11={8={2=1 5={4=/p}}} 22=key}", {}},
        {__LINE__, file, 518, "\x01", 0, "", refused({alert})},
        {__LINE__, file, 513, "\x01", 0, "", refused({alert})},
        {__LINE__, file, 514, "/p", 0, "", errors({"unknown event id:514", alert})},
    };
    for (const auto& [line, builder, id, data, size, shown, lines] : rows) {
        ST_QUEQE_NODE node;
        node.uEventId = id;
        set_guid(node, "g");
        node.stFileTrace = {data == nullptr ? "" : data, "key"};
        node.uSize = size;
        if (data != nullptr) node.pData = zel::copy_bytes(data, strlen(data) + 1);
        const Built built = build(builder, node);
        EXPECT_EQ(built.shown, shown) << "line " << line;
        EXPECT_EQ(built.lines, lines) << "line " << line;
    }
}

}  // namespace
