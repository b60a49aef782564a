// The object of an event: from its keys in a document to its fields in the message.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "decode/document.h"
#include "decode/event_records.h"
#include "decode/event_types.h"
#include "support/failing_memory.h"
#include "trace/built.h"
#include "trace/getioaprotobuf_objects.h"

using namespace vorn_retrace;
using namespace zel_test;

namespace {

template <class Record>
zel::EventPrivate record(Record value) {
    return zel::EventPrivate(std::make_unique<Record>(std::move(value)));
}

Built build_event(uint32_t uType, zel::EventPrivate record, int nContainerInitPid = 0, int type = 0) {
    ST_BUF_DATA data;
    ST_RAW_EVENT& event = data.vecRule.emplace_back().vecEvent.emplace_back();
    event.uType = uType;
    event.pPrivate = std::move(record);
    data.nAlertType = type;
    data.nContainerInitPid = nContainerInitPid;
    return build(data);
}

// The whole message around the fields of the event behind its empty subject.
std::string around(int type, const std::string& object) {
    return "1=me 8={11={8={2=" + std::to_string(type) + " 4={} " + object + "}}}";
}

struct Row {
    uint32_t type;
    int message_type;    // of the event in the message
    const char* record;  // its type in the log
    const char* keys;    // in reading order, as in document.h
    const char* fields;  // the object's field in the message, then NUMBER=KEY of its members, texts in checking order
};
// clang-format off
const Row kRows[] = {
    {1, 1, "ST_PROCESS_CREATE",
     "ObjectPid:N ObjectTid:N ObjectImage:S ObjectCmd:S ObjectCreateTime:N ObjectUser:S ObjectGuid:S ObjectMd5:SO "
     "ObjectSha256:SO DecodedObjectCmd:SW",
     "5: 4=ObjectImage 8=ObjectCmd 9=ObjectUser 3=ObjectGuid 5=ObjectMd5 6=ObjectSha256 2=ObjectPid 14=ObjectTid "
     "13=ObjectCreateTime"},
    {2, 15, "ST_PROCESS_EXIT", "ObjectPid:N ExitCode:N", "6: 3=ExitCode 2=ObjectPid"},
    {3, 10, "ST_REMOTE_THREAD",
     "ObjectPid:N ObjectTid:N ObjectImage:S ObjectCmd:S ObjectCreateTime:N ObjectUser:S StartAddress:A StartModule:S "
     "StartFunction:S",
     "7: 6=ObjectImage 8=StartModule 9=StartFunction 2=ObjectPid 4=ObjectTid 3=ObjectCreateTime 5=StartAddress"},
    {4, 4, "ST_LOAD_EVENT", "ObjectImage:S ObjectImageSigner:S", "8: 3=ObjectImage"},
    {5, 16, "ST_LOAD_EVENT", "ObjectImage:S ObjectImageSigner:S", "9: 3=ObjectImage 6=ObjectImageSigner"},
    {6, 5, "ST_FILE_CREATE", "FileType:S FilePath:S", "10: 2=FilePath 4=FileType"},
    {7, 6, "ST_FILE_DELETE", "FilePath:S", "11: 2=FilePath"},
    {8, 7, "ST_FILE_RENAME", "FileType:S OldFilePath:S NewFilePath:S", "12: 2=NewFilePath 3=OldFilePath 7=FileType"},
    {9, 9, "PST_FILE_TIME_CHANGE", "FilePath:S PostTime:N PreTime:N", "14: 4=FilePath"},
    {10, 8, "PST_FILE_MODIFY", "FileType:S FilePath:S FileUser:SO FileGroup:SO FilePermissions:SO",
     "13: 2=FilePath 6=FileType 7=FilePermissions"},
    {11, 11, "ST_REG_OP", "KeyPath:S", "15: 2=KeyPath"},
    {12, 12, "ST_REG_OP", "KeyPath:S", "16: 2=KeyPath"},
    {13, 13, "ST_REG_SET", "KeyPath:S ValueName:S ValueData:S ValueType:N",
     "17: 2=KeyPath 3=ValueName 4=ValueData 5=ValueType"},
    {14, 3, "ST_NETWORK_CONNECT", "DstPort:N SrcPort:N DstIp:S Protocol:S SrcIp:S",
     "18: 4=DstIp 5=SrcIp 6=Protocol 2=DstPort 3=SrcPort"},
    {15, 2, "ST_DNS_QUERY", "Domain:S ResultIp:S", "19: 2=Domain 4=ResultIp"},
    {16, 14, "ST_TASK_CREATE", "TaskName:S TaskPath:S TaskUser:S TaskFreq:S",
     "20: 2=TaskName 3=TaskPath 4=TaskUser 5=TaskFreq"},
    {17, 19, "ST_WMIFILTER_INFO", "Name:S Namespace:S Query:S User:S", "27: 4=Name 3=Namespace 5=Query 2=User"},
    {18, 18, "ST_WMICONSUMER_INFO", "Name:S WmiType:S Object:S User:S", "26: 4=Name 5=Object 3=WmiType 2=User"},
    {19, 17, "ST_WMIBINDING_INFO", "FilterName:S ConsumerName:S User:S", "25: 3=ConsumerName 4=FilterName 2=User"},
    {20, 24, "ST_ACCOUNT_CREATE",
     "UserSid:S UserName:S DomainName:S TargetUserSid:S TargetUserName:S TargetDomainName:S",
     "28: 2=UserSid 3=UserName 4=DomainName 5=TargetUserSid 6=TargetUserName 7=TargetDomainName"},
    {21, 25, "ST_ACCOUNT_LOGON",
     "UserSid:S UserName:S DomainName:S TargetUserSid:S TargetUserName:S TargetDomainName:S TargetLongonType:N",
     "29: 2=UserSid 3=UserName 4=DomainName 5=TargetUserSid 6=TargetUserName 7=TargetDomainName 8=TargetLongonType"},
    {22, 20, "ST_SVRCREATE_INFO", "ServiceCmd:S ServiceName:S ServiceStartType:N",
     "30: 3=ServiceCmd 2=ServiceName 4=ServiceStartType"},
    {23, 22, "ST_SVRDEL_INFO", "ServiceName:S", "32: 2=ServiceName"},
    {24, 21, "ST_SVRUPDATE_INFO", "ServiceCmd:S ServiceName:S StartPost:N StartPre:N",
     "31: 3=ServiceCmd 2=ServiceName 4=StartPre 5=StartPost"},
    {25, 26, "ST_PORTLISTEN_INFO", "Address:S Protocol:S Port:N", "33: 2=Address 3=Protocol 4=Port"},
    {26, 29, "ST_FILE_OPEN_INFO", "FilePath:S FileType:S", "35: 2=FilePath 5=FileType"},
    {27, 30, "ST_SYMBOL_LINK_INFO", "LinkName:S Target:S", "36: 2=LinkName 3=Target"},
    {28, 33, "ST_NAMED_PIPE_CREATE_INFO", "PipeName:S", "37: 2=PipeName"},
    {29, 34, "ST_NAMED_PIPE_CONNECT_INFO", "PipeName:S", "37: 2=PipeName"},
    {34, 36, "_ST_SYSCALL_SOCKET", "Domain:N Type:N Proto:N", "40: 2=Domain 3=Type 4=Proto"},
    {35, 37, "_ST_SYSCALL_PTRACE", "Reserved:S", "41: 2=Reserved"},
    {36, 38, "_ST_SYSCALL_USERFAULTFD", "Reserved:S", "42: 2=Reserved"},
    {37, 39, "_ST_SYSCALL_COREPATTERN", "Reserved:S", "43: 2=Reserved"},
    {38, 40, "ST_SYSCALL_SYSCONNECT", "UnixPath:S Port:N Inode:N FdId:N", "44: 2=UnixPath 3=Port 4=Inode 5=FdId"},
    {39, 41, "ST_FD_INFO", "FDContent:S FDType:S FDPermissions:S FDId:N FDLinkInode:N",
     "45: 2=FDContent 3=FDType 4=FDPermissions 5=FDId 6=FDLinkInode"},
};
// clang-format on

bool checks_texts(const Row& row) { return row.type < 34; }

// The message around an object with these values, one for each key.
std::string message_of(const Row& row, std::map<std::string, std::string> values) {
    std::istringstream in(row.fields);
    std::map<int, std::string> shown;
    std::string object, field;
    for (in >> object; in >> field;)
        if (const std::string value = values.at(field.substr(field.find('=') + 1)); !value.empty() && value != "0")
            shown[std::stoi(field)] = std::to_string(std::stoi(field)) + '=' + value;
    for (field.clear(); const auto& [number, text] : shown) field += (field.empty() ? "" : " ") + text;
    return around(row.message_type, std::to_string(std::stoi(object)) + "={" + field + "}");
}

// The message of an event with these members, and the log of their decoding.
std::pair<Built, std::string> decode_and_build(const Row& row, const std::string& text) {
    const Tree json = parse('{' + text + '}');
    ST_RAW_EVENT event;
    event.uType = row.type;
    LogCapture::get().take();
    const bool decoded = CEventHandle::GetEventPrivateInfo(json.get(), event);
    const std::string log = take_log();
    return {decoded ? build_event(row.type, std::move(event.pPrivate)) : Built(), log};
}

TEST(Objects, EachKeyReachesItsField) {
    for (const Row& row : kRows)
        check_keys(row.keys, zel::Words::not_type, "", [&](const std::string& text, const std::string& values) {
            std::map<std::string, std::string> by_key;
            std::istringstream in(values);
            for (const Key& key : keys_of(row.keys)) std::getline(in, by_key[key.name], ' ');
            const auto& [built, log] = decode_and_build(row, text);
            EXPECT_EQ(built.shown, values.empty() ? "" : message_of(row, by_key)) << row.record;
            return log;
        });
}

TEST(Objects, TextsAreCheckedInTheOrderOfTheFields) {
    for (const Row& row : kRows) {
        std::vector<std::string> texts;  // bad ones, in checking order
        std::istringstream in(row.fields);
        for (std::string field; in >> field;)
            if (const std::string name = field.substr(field.find('=') + 1); strstr(row.keys, (name + ":S").c_str()))
                texts.push_back('"' + name + "\":\"\\u0001" + std::to_string(texts.size()) + '"');
        for (size_t i = 0; i < texts.size(); ++i) {
            const Built built = decode_and_build(row, joined(texts) + ',' + members(row.keys)).first;
            if (checks_texts(row)) {
                EXPECT_EQ(built.lines.at(0), first_line_about(i)) << row.record;
            } else {
                EXPECT_THAT(built.shown, testing::HasSubstr('=' + bad_text(i))) << row.record;
            }
            texts[i].clear();
        }
    }
}

TEST(Objects, NumbersKeepTheirSignOrTheirWidth) {
    const struct {
        uint32_t type;
        std::string given, shown;
    } rows[] = {
        {1, R"("ObjectPid":-1,"ObjectTid":-1,"ObjectCreateTime":-5)",
         " 5={2=-1 3=12 4=8 5=13 6=14 8=9 9=11 13=-5 14=-1}"},
        {2, R"("ObjectPid":-1,"ExitCode":-9)", "{2=-1 3=-9}"},
        {3, R"("ObjectPid":-1,"ObjectTid":-1)", "{2=-1 3=10 4=-1 "},
        {13, R"("ValueType":-1)", " 5=-1}"},
        {14, R"("DstPort":-1)", "{2=4294967295 "},
        {21, R"("TargetLongonType":-1)", " 8=-1}"},
        {25, R"("Port":-1)", " 4=-1}"},
        {34, R"("Domain":-1)", "{2=-1 "},
        {38, R"("Port":-1)", " 3=4294967295 "},
    };
    for (const auto& [type, given, shown] : rows) {
        const Row& row = *std::ranges::find(kRows, type, &Row::type);
        EXPECT_THAT(decode_and_build(row, given + ',' + members(row.keys)).first.shown, testing::HasSubstr(shown));
    }
}

TEST(Objects, NameTheRecordThatGetsNoMemory) {
    for (const Row& row : kRows) {
        const Tree json = parse("{}");
        ST_RAW_EVENT event;
        LogCapture::get().take();
        {
            const FailingMemory first(0);
            EXPECT_FALSE(zel::find_event_type(row.type)->decode(json.get(), event)) << row.record;
        }
        EXPECT_EQ(take_log(), std::string("E new(std::nothrow)") + row.record + " error");
        EXPECT_FALSE(event.pPrivate);
    }
}

TEST(Objects, NoOtherTypeIsKnown) {
    const Lines unknown = errors({"The event is unknown.event:%", "SetSubjectInfo failed!", "Set event info failed",
                                  "GetThreatAlertInfo failed!"});
    for (uint32_t type = 0; type < 64; ++type) {
        const bool known = std::ranges::count(kRows, type, &Row::type) == 1;
        ASSERT_EQ(zel::find_object_row(type) != nullptr, known) << type;
        if (known) continue;
        EXPECT_EQ(build_event(type, {}).lines, unknown) << type;
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
