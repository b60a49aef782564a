#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "decode/event_records.h"
#include "trace/built.h"
#include "trace/getioaprotobuf_objects.h"

using namespace vorn_retrace;
using namespace zel_test;

namespace {

template <class Record>
zel::EventPrivate record(Record value) {
    return zel::EventPrivate(std::make_unique<Record>(std::move(value)));
}

ST_BUF_DATA alert_of(uint32_t uType, zel::EventPrivate record) {
    ST_BUF_DATA data;
    ST_RAW_EVENT& event = data.vecRule.emplace_back().vecEvent.emplace_back();
    event.uType = uType;
    event.pPrivate = std::move(record);
    return data;
}

Built build_event(uint32_t uType, zel::EventPrivate record, int nContainerInitPid = 0, int type = 0) {
    ST_BUF_DATA data = alert_of(uType, std::move(record));
    data.nAlertType = type;
    data.nContainerInitPid = nContainerInitPid;
    return build(data);
}

// The whole message around the fields of the event behind its empty subject.
std::string around(int type, const std::string& object) {
    return "1=me 8={11={8={2=" + std::to_string(type) + " 4={} " + object + "}}}";
}

constexpr uint32_t kMinus1 = 0xFFFFFFFF;
constexpr const char* kBad = "\x01";

struct Object {
    uint32_t uType;
    int type;  // of the event in the message
    zel::EventPrivate record;
    std::string shown;  // the object in the message
};
Object kObjects[] = {
    {1, 1, record(ST_PROCESS_CREATE{kMinus1, kMinus1, "i", "c", -5, "u", "g", "d", "m", "s"}),
     "5={2=-1 3=g 4=i 5=m 6=s 8=c 9=u 13=-5 14=-1}"},
    {2, 15, record(ST_PROCESS_EXIT{kMinus1, -9}), "6={2=-1 3=-9}"},
    {3, 10, record(ST_REMOTE_THREAD{kMinus1, kMinus1, "i", "c", 5, "u", 77, "m", "f"}),
     "7={2=-1 3=5 4=-1 5=77 6=i 8=m 9=f}"},
    {4, 4, record(ST_LOAD_EVENT{"img", "signer"}), "8={3=img}"},
    {5, 16, record(ST_LOAD_EVENT{"img", "signer"}), "9={3=img 6=signer}"},
    {6, 5, record(ST_FILE_CREATE{"type", "path"}), "10={2=path 4=type}"},
    {7, 6, record(ST_FILE_DELETE{"path"}), "11={2=path}"},
    {8, 7, record(ST_FILE_RENAME{"type", "old", "new"}), "12={2=new 3=old 7=type}"},
    {9, 9, record(PST_FILE_TIME_CHANGE{"path", 1, 2}), "14={4=path}"},
    {10, 8, record(PST_FILE_MODIFY{"type", "/no/such", "usr", "grp", "perm"}), "13={2=/no/such 6=type 7=perm}"},
    {11, 11, record(ST_REG_OP{"key"}), "15={2=key}"},
    {12, 12, record(ST_REG_OP{"key"}), "16={2=key}"},
    {13, 13, record(ST_REG_SET{"key", "name", "data", kMinus1}), "17={2=key 3=name 4=data 5=-1}"},
    {14, 3, record(ST_NETWORK_CONNECT{kMinus1, 80, "dst", "src", "tcp"}), "18={2=4294967295 3=80 4=dst 5=src 6=tcp}"},
    {15, 2, record(ST_DNS_QUERY{"dom", "ip"}), "19={2=dom 4=ip}"},
    {16, 14, record(ST_TASK_CREATE{"name", "path", "usr", "freq"}), "20={2=name 3=path 4=usr 5=freq}"},
    {17, 19, record(ST_WMIFILTER_INFO{"usr", "ns", "name", "query"}), "27={2=usr 3=ns 4=name 5=query}"},
    {18, 18, record(ST_WMICONSUMER_INFO{"usr", "type", "name", "obj"}), "26={2=usr 3=type 4=name 5=obj}"},
    {19, 17, record(ST_WMIBINDING_INFO{"usr", "filter", "consumer"}), "25={2=usr 3=consumer 4=filter}"},
    {20, 24, record(ST_ACCOUNT_CREATE{"a", "b", "c", "d", "e", "f"}), "28={2=a 3=b 4=c 5=d 6=e 7=f}"},
    {21, 25, record(ST_ACCOUNT_LOGON{"a", "b", "c", "d", "e", "f", kMinus1}), "29={2=a 3=b 4=c 5=d 6=e 7=f 8=-1}"},
    {22, 20, record(ST_SVRCREATE_INFO{"cmd", "name", 0x700000003}), "30={2=name 3=cmd 4=3}"},
    {23, 22, record(ST_SVRDEL_INFO{"name"}), "32={2=name}"},
    {24, 21, record(ST_SVRUPDATE_INFO{"cmd", "name", 3, 4}), "31={2=name 3=cmd 4=3 5=4}"},
    {25, 26, record(ST_PORTLISTEN_INFO{"addr", "tcp", kMinus1}), "33={2=addr 3=tcp 4=-1}"},
    {26, 29, record(ST_FILE_OPEN_INFO{"type", "path"}), "35={2=path 5=type}"},
    {27, 30, record(ST_SYMBOL_LINK_INFO{"link", "target"}), "36={2=link 3=target}"},
    {28, 33, record(ST_NAMED_PIPE_CREATE_INFO{"pipe"}), "37={2=pipe}"},
    {29, 34, record(ST_NAMED_PIPE_CONNECT_INFO{"pipe"}), "37={2=pipe}"},
    {34, 36, record(_ST_SYSCALL_SOCKET{-1, 2, 3}), "40={2=-1 3=2 4=3}"},
    {35, 37, record(_ST_SYSCALL_PTRACE{kBad}), "41={2=\x01}"},
    {36, 38, record(_ST_SYSCALL_USERFAULTFD{kBad}), "42={2=\x01}"},
    {37, 39, record(_ST_SYSCALL_COREPATTERN{kBad}), "43={2=\x01}"},
    {38, 40, record(ST_SYSCALL_SYSCONNECT{kBad, kMinus1, 3, 4}), "44={2=\x01 3=4294967295 4=3 5=4}"},
    {39, 41, record(ST_FD_INFO{kBad, "\x02", "\x03", 4, 5}), "45={2=\x01 3=\x02 4=\x03 5=4 6=5}"},
};

TEST(Objects, EveryTypeReachesItsFieldsAndNoOtherIsKnown) {
    const Lines unknown = errors({"The event is unknown.event:%", "SetSubjectInfo failed!", "Set event info failed",
                                  "GetThreatAlertInfo failed!"});
    auto row = std::begin(kObjects);
    for (uint32_t uType = 0; uType < 64; ++uType) {
        const bool known = row != std::end(kObjects) && row->uType == uType;
        ASSERT_EQ(zel::find_object_row(uType) != nullptr, known) << uType;
        if (!known) {
            EXPECT_EQ(build_event(uType, {}).lines, unknown) << uType;
            continue;
        }
        EXPECT_EQ(build_event(uType, std::move(row->record)).shown, around(row->type, row->shown)) << uType;
        ++row;
    }
}

template <class... Text>
std::vector<std::string*> list(Text&... texts) {
    return {&texts...};
}
template <class R>
void expect_order_of(uint32_t uType, std::vector<std::string*> (*texts)(R& record)) {
    auto record = std::make_unique<R>();
    const std::vector<std::string*> checked = texts(*record);
    ST_BUF_DATA data = alert_of(uType, zel::EventPrivate(std::move(record)));
    expect_order(data, checked);
}

TEST(Objects, TextsAreCheckedInOrder) {
    // clang-format off
    expect_order_of<ST_PROCESS_CREATE>(1, [](auto& r) {
        return list(r.strImage, r.strCmd, r.strUser, r.strGuid, r.strMd5, r.strSha256); });
    expect_order_of<ST_REMOTE_THREAD>(3, [](auto& r) {
        return list(r.strImage, r.strStartModule, r.strStartFunction); });
    expect_order_of<ST_LOAD_EVENT>(4, [](auto& r) { return list(r.strImage); });
    expect_order_of<ST_LOAD_EVENT>(5, [](auto& r) { return list(r.strImage, r.strImageSigner); });
    expect_order_of<ST_FILE_CREATE>(6, [](auto& r) { return list(r.strFilePath, r.strFileType); });
    expect_order_of<ST_FILE_DELETE>(7, [](auto& r) { return list(r.strFilePath); });
    expect_order_of<ST_FILE_RENAME>(8, [](auto& r) { return list(r.strNewFilePath, r.strOldFilePath, r.strFileType); });
    expect_order_of<ST_REG_OP>(11, [](auto& r) { return list(r.strKeyPath); });
    expect_order_of<ST_REG_OP>(12, [](auto& r) { return list(r.strKeyPath); });
    expect_order_of<ST_REG_SET>(13, [](auto& r) { return list(r.strKeyPath, r.strValueName, r.strValueData); });
    expect_order_of<ST_NETWORK_CONNECT>(14, [](auto& r) { return list(r.strDstIp, r.strSrcIp, r.strProtocol); });
    expect_order_of<ST_DNS_QUERY>(15, [](auto& r) { return list(r.strDomain, r.strResultIp); });
    expect_order_of<ST_TASK_CREATE>(16, [](auto& r) {
        return list(r.strTaskName, r.strTaskPath, r.strTaskUser, r.strTaskFreq); });
    expect_order_of<ST_WMIFILTER_INFO>(17, [](auto& r) {
        return list(r.strName, r.strNamespace, r.strQuery, r.strUser); });
    expect_order_of<ST_WMICONSUMER_INFO>(18, [](auto& r) {
        return list(r.strName, r.strObject, r.strWmiType, r.strUser); });
    expect_order_of<ST_WMIBINDING_INFO>(19, [](auto& r) {
        return list(r.strConsumerName, r.strFilterName, r.strUser); });
    expect_order_of<ST_ACCOUNT_CREATE>(20, [](auto& r) {
        return list(r.strUserSid, r.strUserName, r.strDomainName,
                    r.strTargetUserSid, r.strTargetUserName, r.strTargetDomainName); });
    expect_order_of<ST_ACCOUNT_LOGON>(21, [](auto& r) {
        return list(r.strUserSid, r.strUserName, r.strDomainName,
                    r.strTargetUserSid, r.strTargetUserName, r.strTargetDomainName); });
    expect_order_of<ST_SVRCREATE_INFO>(22, [](auto& r) { return list(r.strServiceCmd, r.strServiceName); });
    expect_order_of<ST_SVRDEL_INFO>(23, [](auto& r) { return list(r.strServiceName); });
    expect_order_of<ST_SVRUPDATE_INFO>(24, [](auto& r) { return list(r.strServiceCmd, r.strServiceName); });
    expect_order_of<ST_PORTLISTEN_INFO>(25, [](auto& r) { return list(r.strAddress, r.strProtocol); });
    expect_order_of<ST_FILE_OPEN_INFO>(26, [](auto& r) { return list(r.strFilePath, r.strFileType); });
    expect_order_of<ST_SYMBOL_LINK_INFO>(27, [](auto& r) { return list(r.strLinkName, r.strTarget); });
    expect_order_of<ST_NAMED_PIPE_CREATE_INFO>(28, [](auto& r) { return list(r.strPipeName); });
    expect_order_of<ST_NAMED_PIPE_CONNECT_INFO>(29, [](auto& r) { return list(r.strPipeName); });
    // clang-format on
    // Two that need more than their texts: a time above 0, and a file.
    EXPECT_EQ(build_event(9, record(PST_FILE_TIME_CHANGE{bad_text(0), 1, 1})).lines.front(), first_line_about(0));
    for (size_t good = 0; good < 3; ++good) {
        PST_FILE_MODIFY file;
        file.strFilePath = good > 0 ? "" : bad_text(0);
        file.strFileType = good > 1 ? "" : bad_text(1);
        file.strFilePermissions = bad_text(2);
        EXPECT_EQ(build_event(10, record(file)).lines.front(), first_line_about(good));
    }
}

TEST(Objects, TheAlertsTypeDecidesAboutObjectAndContainer) {
    const std::string with_object = " 11={8={2=6 4={} 11={2=gone}}}", in_container = " 23=host 34=3}";
    const std::pair<int, std::string> rows[] = {
        {VORN_RISK_IOC, with_object + "}"},           {VORN_RISK_IOA, with_object + in_container},
        {VORN_RISK_HOTPATCH, " 11={8={2=23 4={}}}}"}, {VORN_RISK_MEMORY_DETECION, " 11={8={2=27 4={}}}" + in_container},
        {VORN_RISK_RTS_ADR, " 11={8={2=28 4={}}}}"},
    };
    for (const auto& [type, shown] : rows)
        EXPECT_THAT(build_event(7, record(ST_FILE_DELETE{"gone"}), 3, type).shown, testing::EndsWith(shown)) << type;
}

TEST(Objects, AModifiedFileHasTheSizeThatItHasNow) {
    const std::string folder = std::filesystem::temp_directory_path() / ("sizes" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/five") << "12345";
    std::ofstream(folder + "/empty").flush();
    std::ofstream(folder + "/huge").flush();
    std::filesystem::resize_file(folder + "/huge", 5ULL << 30);
    mkfifo((folder + "/fifo").c_str(), 0600);
    const Lines none, not_opened = errors({"open file error", "get file size error"});
    const Lines no_size = errors({"get file size error"});
    const struct {
        std::string path;
        int container;
        std::string size;
        Lines lines;
    } rows[] = {
        {folder + "/five", 0, " 8=5", none},
        {folder + "/five", getpid(), " 8=5", none},
        {folder + "/five", 1 << 30, "", not_opened},  // no such process
        {folder + "/empty", 0, "", none},
        {folder + "/huge", 0, " 8=5368709120", none},
        {folder + "/gone", 0, "", not_opened},
        {folder + "/fifo", 0, "", not_opened},
        {"/dev/null", 0, "", not_opened},
        {"/proc/self", 0, "", none},  // a folder of size 0
        {"/proc/cpuinfo", 0, "", no_size},
    };
    for (const auto& row : rows) {
        const Built built = build_event(10, record(PST_FILE_MODIFY{"", row.path, "", "", "x"}), row.container);
        EXPECT_EQ(built.shown, around(8, "13={2=" + row.path + " 7=x" + row.size + "}"));
        EXPECT_EQ(built.lines, row.lines) << row.path << " in " << row.container;
    }
    std::filesystem::remove_all(folder);
}

TEST(Objects, ALookAtAFileLeavesNoneOpen) {
    const int lowest_free = dup(STDERR_FILENO);
    close(lowest_free);
    for (const char* path : {"/", "/dev/null"}) build_event(10, record(PST_FILE_MODIFY{"", path, "", "", ""}));
    const int lowest_free_now = dup(STDERR_FILENO);
    close(lowest_free_now);
    EXPECT_EQ(lowest_free_now, lowest_free);
}

TEST(ObjectsDeathTest, AFileTimeOf0EndsTheProcess) {
    EXPECT_DEATH(build_event(9, record(PST_FILE_TIME_CHANGE{"path", 0, 1})), "uTime > 0");
}

}  // namespace
