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
#include "trace/built.h"
#include "trace/getioaprotobuf_objects.h"

using namespace vorn_retrace;
using namespace zel_test;

static bool has_memory = true;
void* operator new(size_t size, const std::nothrow_t&) noexcept { return has_memory ? ::operator new(size) : nullptr; }

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
    int message_type;     // of the event in the message
    const char* record;   // its type in the log
    int object;           // the object's field in the message
    const char* keys;     // in reading order, as in document.h, with the fields of the object
    const char* checked;  // the fields whose texts are checked, in that order; all others go in as they are
};
// clang-format off
const Row kRows[] = {
    {1, 1, "ST_PROCESS_CREATE", 5, "ObjectPid:N=2 ObjectTid:N=14 ObjectImage:S=4 ObjectCmd:S=8 ObjectCreateTime:N=13 "
     "ObjectUser:S=9 ObjectGuid:S=3 ObjectMd5:SO=5 ObjectSha256:SO=6 DecodedObjectCmd:SW", "4 8 9 3 5 6"},
    {2, 15, "ST_PROCESS_EXIT", 6, "ObjectPid:N=2 ExitCode:N=3", ""},
    {3, 10, "ST_REMOTE_THREAD", 7, "ObjectPid:N=2 ObjectTid:N=4 ObjectImage:S=6 ObjectCmd:S ObjectCreateTime:N=3 "
     "ObjectUser:S StartAddress:A=5 StartModule:S=8 StartFunction:S=9", "6 8 9"},
    {4, 4, "ST_LOAD_EVENT", 8, "ObjectImage:S=3 ObjectImageSigner:S", "3"},
    {5, 16, "ST_LOAD_EVENT", 9, "ObjectImage:S=3 ObjectImageSigner:S=6", "3 6"},
    {6, 5, "ST_FILE_CREATE", 10, "FileType:S=4 FilePath:S=2", "2 4"},
    {7, 6, "ST_FILE_DELETE", 11, "FilePath:S=2", "2"},
    {8, 7, "ST_FILE_RENAME", 12, "FileType:S=7 OldFilePath:S=3 NewFilePath:S=2", "2 3 7"},
    {9, 9, "PST_FILE_TIME_CHANGE", 14, "FilePath:S=4 PostTime:N PreTime:N", "4"},
    {10, 8, "PST_FILE_MODIFY", 13, "FileType:S=6 FilePath:S=2 FileUser:SO FileGroup:SO FilePermissions:SO=7", "2 6 7"},
    {11, 11, "ST_REG_OP", 15, "KeyPath:S=2", "2"},
    {12, 12, "ST_REG_OP", 16, "KeyPath:S=2", "2"},
    {13, 13, "ST_REG_SET", 17, "KeyPath:S=2 ValueName:S=3 ValueData:S=4 ValueType:N=5", "2 3 4"},
    {14, 3, "ST_NETWORK_CONNECT", 18, "DstPort:N=2 SrcPort:N=3 DstIp:S=4 Protocol:S=6 SrcIp:S=5", "4 5 6"},
    {15, 2, "ST_DNS_QUERY", 19, "Domain:S=2 ResultIp:S=4", "2 4"},
    {16, 14, "ST_TASK_CREATE", 20, "TaskName:S=2 TaskPath:S=3 TaskUser:S=4 TaskFreq:S=5", "2 3 4 5"},
    {17, 19, "ST_WMIFILTER_INFO", 27, "Name:S=4 Namespace:S=3 Query:S=5 User:S=2", "4 3 5 2"},
    {18, 18, "ST_WMICONSUMER_INFO", 26, "Name:S=4 WmiType:S=3 Object:S=5 User:S=2", "4 5 3 2"},
    {19, 17, "ST_WMIBINDING_INFO", 25, "FilterName:S=4 ConsumerName:S=3 User:S=2", "3 4 2"},
    {20, 24, "ST_ACCOUNT_CREATE", 28, "UserSid:S=2 UserName:S=3 DomainName:S=4 TargetUserSid:S=5 TargetUserName:S=6 "
     "TargetDomainName:S=7", "2 3 4 5 6 7"},
    {21, 25, "ST_ACCOUNT_LOGON", 29, "UserSid:S=2 UserName:S=3 DomainName:S=4 TargetUserSid:S=5 TargetUserName:S=6 "
     "TargetDomainName:S=7 TargetLongonType:N=8", "2 3 4 5 6 7"},
    {22, 20, "ST_SVRCREATE_INFO", 30, "ServiceCmd:S=3 ServiceName:S=2 ServiceStartType:N=4", "3 2"},
    {23, 22, "ST_SVRDEL_INFO", 32, "ServiceName:S=2", "2"},
    {24, 21, "ST_SVRUPDATE_INFO", 31, "ServiceCmd:S=3 ServiceName:S=2 StartPost:N=5 StartPre:N=4", "3 2"},
    {25, 26, "ST_PORTLISTEN_INFO", 33, "Address:S=2 Protocol:S=3 Port:N=4", "2 3"},
    {26, 29, "ST_FILE_OPEN_INFO", 35, "FilePath:S=2 FileType:S=5", "2 5"},
    {27, 30, "ST_SYMBOL_LINK_INFO", 36, "LinkName:S=2 Target:S=3", "2 3"},
    {28, 33, "ST_NAMED_PIPE_CREATE_INFO", 37, "PipeName:S=2", "2"},
    {29, 34, "ST_NAMED_PIPE_CONNECT_INFO", 37, "PipeName:S=2", "2"},
    {34, 36, "_ST_SYSCALL_SOCKET", 40, "Domain:N=2 Type:N=3 Proto:N=4", ""},
    {35, 37, "_ST_SYSCALL_PTRACE", 41, "Reserved:S=2", ""},
    {36, 38, "_ST_SYSCALL_USERFAULTFD", 42, "Reserved:S=2", ""},
    {37, 39, "_ST_SYSCALL_COREPATTERN", 43, "Reserved:S=2", ""},
    {38, 40, "ST_SYSCALL_SYSCONNECT", 44, "UnixPath:S=2 Port:N=3 Inode:N=4 FdId:N=5", ""},
    {39, 41, "ST_FD_INFO", 45, "FDContent:S=2 FDType:S=3 FDPermissions:S=4 FDId:N=5 FDLinkInode:N=6", ""},
};
// clang-format on

// The message around an object with these values, one for each key.
std::string message_of(const Row& row, std::istringstream values) {
    std::map<int, std::string> shown;
    std::string object, value;
    for (const Key& key : keys_of(row.keys))
        if (std::getline(values, value, ' '); key.field != 0 && !value.empty() && value != "0")
            shown[key.field] = std::to_string(key.field) + '=' + value;
    for (const auto& [field, text] : shown) object += (object.empty() ? "" : " ") + text;
    return around(row.message_type, std::to_string(row.object) + "={" + object + "}");
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
            const auto& [built, log] = decode_and_build(row, text);
            EXPECT_EQ(built.shown, values.empty() ? "" : message_of(row, std::istringstream(values))) << row.record;
            return log;
        });
}

TEST(Objects, TextsAreCheckedInOrder) {
    for (const Row& row : kRows) {
        std::vector<Key> keys = keys_of(row.keys);
        std::vector<std::string> texts;  // bad ones, in checking order, then those that nobody checks
        std::istringstream in(row.checked);
        const auto spoil = [&](const Key& key) {
            texts.push_back('"' + key.name + "\":\"\\u0001" + std::to_string(texts.size()) + '"');
        };
        for (int field; in >> field; std::erase_if(keys, [&](const Key& key) { return key.field == field; }))
            spoil(*std::ranges::find(keys, field, &Key::field));
        const size_t checked = texts.size();
        for (const Key& key : keys)
            if (key.kind == 'S') spoil(key);
        for (size_t i = 0; i < checked; ++i) {
            const Built built = decode_and_build(row, joined({joined(texts), members(row.keys)})).first;
            EXPECT_EQ(built.lines, refused(bad_text(i)) + kEventFails) << row.record;
            texts[i].clear();
        }
        EXPECT_NE(decode_and_build(row, joined({joined(texts), members(row.keys)})).first.shown, "") << row.record;
    }
}

TEST(Objects, NumbersKeepTheirSignOrTheirWidth) {
    const std::tuple<uint32_t, std::string, std::string> rows[] = {
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
        ST_RAW_EVENT event;
        LogCapture::get().take();
        has_memory = false;
        EXPECT_FALSE(zel::find_event_type(row.type)->decode(parse("{}").get(), event)) << row.record;
        has_memory = true;
        EXPECT_EQ(take_log(), std::string("E new(std::nothrow)") + row.record + " error");
        EXPECT_FALSE(event.pPrivate);
    }
}

TEST(Objects, NoOtherTypeIsKnown) {
    const std::string unknown = "E The event is unknown.event:%\n" + kEventFails;
    for (uint32_t type = 0; type < 64; ++type) {
        const bool known = std::ranges::count(kRows, type, &Row::type) == 1;
        ASSERT_EQ(zel::find_object_row(type) != nullptr, known) << type;
        const zel::EventType* const decoded = zel::find_event_type(type);
        EXPECT_EQ(decoded != nullptr && decoded->dispatched, known) << type << ": decoded or built alone";
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

int lowest_free_descriptor() {
    const int lowest = dup(STDERR_FILENO);
    close(lowest);
    return lowest;
}

TEST(Objects, AModifiedFileHasTheSizeThatItHasNowAndIsNotLeftOpen) {
    const int before = lowest_free_descriptor();
    const std::string folder = std::filesystem::temp_directory_path() / ("sizes" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/five") << "12345";
    std::ofstream(folder + "/empty").flush();
    std::ofstream(folder + "/huge").flush();
    std::filesystem::resize_file(folder + "/huge", 5ULL << 30);
    mkfifo((folder + "/fifo").c_str(), 0600);
    const std::string no_size = "E get file size error\n", not_opened = "E open file error\n" + no_size;
    const std::tuple<std::string, int, std::string, std::string> rows[] = {
        {folder + "/five", 0, " 8=5", ""},
        {folder + "/five", getpid(), " 8=5", ""},
        {folder + "/five", 1 << 30, "", not_opened},  // no such process
        {folder + "/empty", 0, "", ""},
        {folder + "/huge", 0, " 8=5368709120", ""},
        {folder + "/gone", 0, "", not_opened},
        {folder + "/fifo", 0, "", not_opened},
        {"/dev/null", 0, "", not_opened},
        {"/proc/self", 0, "", ""},  // a folder of size 0
        {"/proc/cpuinfo", 0, "", no_size},
    };
    for (const auto& [path, container, size, lines] : rows) {
        const Built built = build_event(10, record(PST_FILE_MODIFY{"", path, "", "", "x"}), container);
        EXPECT_EQ(built.shown, around(8, "13={2=" + path + " 7=x" + size + "}"));
        EXPECT_EQ(built.lines, lines) << path << " in " << container;
        EXPECT_EQ(lowest_free_descriptor(), before) << path;
    }
    std::filesystem::remove_all(folder);
}

TEST(ObjectsDeathTest, AFileTimeOf0EndsTheProcess) {
    EXPECT_DEATH(build_event(9, record(PST_FILE_TIME_CHANGE{"path", 0, 1})), "uTime > 0");
}

}  // namespace
