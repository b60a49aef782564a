#include <gtest/gtest.h>

#include <new>
#include <set>
#include <sstream>

#include "decode/document.h"
#include "decode/event_records.h"
#include "decode/event_types.h"
#include "decode/memory_party.h"

namespace {
bool g_no_memory = false;
}

void* operator new(size_t size, const std::nothrow_t&) noexcept { return g_no_memory ? nullptr : ::operator new(size); }

namespace {

using zel_test::Json;
using zel_test::LogCapture;

struct Key {
    std::string name;
    char kind;  // S string, N number, A decimal text
    char need;  // 0 required, O or W
};

struct Row {
    int line;
    uint32_t type;
    const char* record;
    const char* keys;  // in reading order, "NAME:KIND" with O or W behind it
    std::string (*dump)(const void* record);  // its members in the order of the keys
};

template <class... T>
std::string dump(const T&... members) {
    std::ostringstream out;
    ((out << members << ' '), ...);
    return out.str();
}

#define ROW(type, R, keys, ...) \
    {__LINE__, type, #R, keys, [](const void* p) { const auto& r = *static_cast<const R*>(p); return dump(__VA_ARGS__); }}

// clang-format off
const Row kRows[] = {
    ROW(1, ST_PROCESS_CREATE, "ObjectPid:N ObjectTid:N ObjectImage:S ObjectCmd:S ObjectCreateTime:N ObjectUser:S ObjectGuid:S ObjectMd5:SO ObjectSha256:SO DecodedObjectCmd:SW",
        r.uPid, r.uTid, r.strImage, r.strCmd, r.llCreateTime, r.strUser, r.strGuid, r.strMd5, r.strSha256, r.strDecodedCmd),
    ROW(2, ST_PROCESS_EXIT, "ObjectPid:N ExitCode:N", r.uPid, r.nExitCode),
    ROW(3, ST_REMOTE_THREAD, "ObjectPid:N ObjectTid:N ObjectImage:S ObjectCmd:S ObjectCreateTime:N ObjectUser:S StartAddress:A StartModule:S StartFunction:S",
        r.uPid, r.uTid, r.strImage, r.strCmd, r.llCreateTime, r.strUser, r.ullStartAddress, r.strStartModule, r.strStartFunction),
    ROW(4, ST_LOAD_EVENT, "ObjectImage:S ObjectImageSigner:S", r.strImage, r.strImageSigner),
    ROW(5, ST_LOAD_EVENT, "ObjectImage:S ObjectImageSigner:S", r.strImage, r.strImageSigner),
    ROW(6, ST_FILE_CREATE, "FileType:S FilePath:S", r.strFileType, r.strFilePath),
    ROW(7, ST_FILE_DELETE, "FilePath:S", r.strFilePath),
    ROW(8, ST_FILE_RENAME, "FileType:S OldFilePath:S NewFilePath:S", r.strFileType, r.strOldFilePath, r.strNewFilePath),
    ROW(9, PST_FILE_TIME_CHANGE, "FilePath:S PostTime:N PreTime:N", r.strFilePath, r.llPostTime, r.llPreTime),
    ROW(10, PST_FILE_MODIFY, "FileType:S FilePath:S FileUser:SO FileGroup:SO FilePermissions:SO",
        r.strFileType, r.strFilePath, r.strFileUser, r.strFileGroup, r.strFilePermissions),
    ROW(11, ST_REG_OP, "KeyPath:S", r.strKeyPath),
    ROW(12, ST_REG_OP, "KeyPath:S", r.strKeyPath),
    ROW(13, ST_REG_SET, "KeyPath:S ValueName:S ValueData:S ValueType:N", r.strKeyPath, r.strValueName, r.strValueData, r.uValueType),
    ROW(14, ST_NETWORK_CONNECT, "DstPort:N SrcPort:N DstIp:S Protocol:S SrcIp:S", r.uDstPort, r.uSrcPort, r.strDstIp, r.strProtocol, r.strSrcIp),
    ROW(15, ST_DNS_QUERY, "Domain:S ResultIp:S", r.strDomain, r.strResultIp),
    ROW(16, ST_TASK_CREATE, "TaskName:S TaskPath:S TaskUser:S TaskFreq:S", r.strTaskName, r.strTaskPath, r.strTaskUser, r.strTaskFreq),
    ROW(17, ST_WMIFILTER_INFO, "Name:S Namespace:S Query:S User:S", r.strName, r.strNamespace, r.strQuery, r.strUser),
    ROW(18, ST_WMICONSUMER_INFO, "Name:S WmiType:S Object:S User:S", r.strName, r.strWmiType, r.strObject, r.strUser),
    ROW(19, ST_WMIBINDING_INFO, "FilterName:S ConsumerName:S User:S", r.strFilterName, r.strConsumerName, r.strUser),
    ROW(20, ST_ACCOUNT_CREATE, "UserSid:S UserName:S DomainName:S TargetUserSid:S TargetUserName:S TargetDomainName:S",
        r.strUserSid, r.strUserName, r.strDomainName, r.strTargetUserSid, r.strTargetUserName, r.strTargetDomainName),
    ROW(21, ST_ACCOUNT_LOGON, "UserSid:S UserName:S DomainName:S TargetUserSid:S TargetUserName:S TargetDomainName:S TargetLongonType:N",
        r.strUserSid, r.strUserName, r.strDomainName, r.strTargetUserSid, r.strTargetUserName, r.strTargetDomainName, r.uTargetLogonType),
    ROW(22, ST_SVRCREATE_INFO, "ServiceCmd:S ServiceName:S ServiceStartType:N", r.strServiceCmd, r.strServiceName, r.llServiceStartType),
    ROW(23, ST_SVRDEL_INFO, "ServiceName:S", r.strServiceName),
    ROW(24, ST_SVRUPDATE_INFO, "ServiceCmd:S ServiceName:S StartPost:N StartPre:N", r.strServiceCmd, r.strServiceName, r.uStartPost, r.uStartPre),
    ROW(25, ST_PORTLISTEN_INFO, "Address:S Protocol:S Port:N", r.strAddress, r.strProtocol, r.uPort),
    ROW(26, ST_FILE_OPEN_INFO, "FilePath:S FileType:S", r.strFilePath, r.strFileType),
    ROW(27, ST_SYMBOL_LINK_INFO, "LinkName:S Target:S", r.strLinkName, r.strTarget),
    ROW(28, ST_NAMED_PIPE_CREATE_INFO, "PipeName:S", r.strPipeName),
    ROW(29, ST_NAMED_PIPE_CONNECT_INFO, "PipeName:S", r.strPipeName),
    ROW(30, ST_PROCESS_TAMPERING_INFO, "ObjectPid:N ObjectCreateTime:N ObjectImage:S ObjectCmd:S TamperedImage:S TamperType:N",
        r.uPid, r.llCreateTime, r.strImage, r.strCmd, r.strTamperedImage, r.uTamperType),
    ROW(31, ST_DLL_INJECT_INFO, "ObjectPid:N ObjectTid:N ObjectCreateTime:N ObjectImage:S ObjectCmd:S ObjectThreadStartAddr:S InjectedDllPath:S",
        r.uPid, r.uTid, r.llCreateTime, r.strImage, r.strCmd, r.strThreadStartAddr, r.strInjectedDllPath),
    ROW(32, ST_REFLECTIVE_INJECT_INFO, "ObjectPid:N ObjectTid:N ObjectCreateTime:N ObjectImage:S ObjectCmd:S ObjectThreadStartAddr:S InjectedDllPath:SW InjectDllCreateTime:NW",
        r.uPid, r.uTid, r.llCreateTime, r.strImage, r.strCmd, r.strThreadStartAddr, r.strInjectedDllPath, r.llInjectDllCreateTime),
    ROW(33, ST_INJECT_REPORT_INFO, "ObjectPid:N ObjectImage:S ObjectCreateTime:N InjectType:N", r.uPid, r.strImage, r.llCreateTime, r.uInjectType),
    ROW(34, _ST_SYSCALL_SOCKET, "Domain:N Type:N Proto:N", r.nDomain, r.nType, r.nProto),
    ROW(35, _ST_SYSCALL_PTRACE, "Reserved:S", r.strReserved),
    ROW(36, _ST_SYSCALL_USERFAULTFD, "Reserved:S", r.strReserved),
    ROW(37, _ST_SYSCALL_COREPATTERN, "Reserved:S", r.strReserved),
    ROW(38, ST_SYSCALL_SYSCONNECT, "UnixPath:S Port:N Inode:N FdId:N", r.strUnixPath, r.uPort, r.ullInode, r.uFdId),
    ROW(39, ST_FD_INFO, "FDContent:S FDType:S FDPermissions:S FDId:N FDLinkInode:N", r.strFdContent, r.strFdType, r.strFdPermissions, r.uFdId, r.ullFdLinkInode),
};
// clang-format on

std::vector<Key> keys_of(const Row& row) {
    std::vector<Key> keys;
    std::istringstream in(row.keys);
    for (std::string word; in >> word;) {
        const size_t colon = word.find(':');
        keys.push_back({word.substr(0, colon), word[colon + 1], word.size() > colon + 2 ? word[colon + 2] : '\0'});
    }
    return keys;
}
std::string good_value(const Key& key, size_t place) {
    const std::string number = std::to_string(100 + place);
    return key.kind == 'N' ? number : '"' + number + '"';
}
// Keys from `bad` on hold another type; without `mistyped` the key at `bad` alone is left out.
Json event_object(const std::vector<Key>& keys, size_t bad, bool mistyped) {
    Json json("{}");
    for (size_t i = 0; i < keys.size(); ++i) {
        if (i < bad || (i > bad && !mistyped)) json.set(keys[i].name, good_value(keys[i], i).c_str());
        if (i >= bad && mistyped) json.set(keys[i].name, keys[i].kind == 'N' ? "\"1\"" : "1");
    }
    return Json(json.text());
}
std::string expected_line(const Key& key, bool mistyped) {
    if (key.need == 'W') return "W get json value error.";
    if (!mistyped) return key.need == 'O' ? "D get json value error." : "E get json value error.";
    if (key.need == 'O') return "D " + key.name + " is not string.";
    return "E " + key.name + (key.kind == 'N' ? " is not 0x00000008." : " is not 0x00000010.");
}
std::string expected_dump(const std::vector<Key>& keys, size_t from_empty, size_t to_empty) {
    std::string text;
    for (size_t i = 0; i < keys.size(); ++i) {
        const bool empty = i >= from_empty && i < to_empty;
        text += (empty ? (keys[i].kind == 'N' ? "0" : "") : std::to_string(100 + i)) + ' ';
    }
    return text;
}

TEST(EventTypes, TableIsComplete) {
    std::set<void (*)(void*)> releases;
    ASSERT_EQ(zel::event_types().size(), std::size(kRows));
    for (const Row& row : kRows) {
        const zel::EventType* type = zel::find_event_type(row.type);
        ASSERT_TRUE(type != nullptr && type->uType == row.type && type->decode && type->release) << row.line;
        const bool process = row.type == 1 || row.type == 3 || (row.type >= 30 && row.type <= 33);
        EXPECT_EQ(type->process != nullptr, process) << row.line;
        EXPECT_EQ(type->dispatched, row.type < 30 || row.type > 33) << row.line;
    }
    EXPECT_EQ(zel::find_event_type(0), nullptr);
    EXPECT_EQ(zel::find_event_type(40), nullptr);
}

TEST(EventTypes, DecodeEachKeyInOrder) {
    for (const Row& row : kRows) {
        const zel::EventType& type = *zel::find_event_type(row.type);
        const std::vector<Key> keys = keys_of(row);
        ST_RAW_EVENT event;
        event.uType = row.type;
        for (size_t bad = 0; bad <= keys.size(); ++bad) {
            for (const bool mistyped : {false, true}) {
                SCOPED_TRACE(std::to_string(row.line) + " key " + std::to_string(bad) + (mistyped ? " mistyped" : " missing"));
                LogCapture::get().take();
                const bool required = bad < keys.size() && keys[bad].need == 0;
                EXPECT_EQ(type.decode(event_object(keys, bad, mistyped).node(), event), !required);
                std::string lines = bad < keys.size() ? expected_line(keys[bad], mistyped) : "";
                if (!required)
                    for (size_t i = bad + 1; mistyped && i < keys.size(); ++i) lines += '|' + expected_line(keys[i], true);
                EXPECT_EQ(zel_test::join_log(LogCapture::get().take()), lines);
                ASSERT_EQ(event.pPrivate == nullptr, required);
                if (required) continue;
                EXPECT_EQ(row.dump(event.pPrivate), expected_dump(keys, bad, mistyped ? keys.size() : bad + 1));
                FreeEventPrivate(event);
                EXPECT_EQ(event.pPrivate, nullptr);
            }
        }
    }
}

TEST(EventTypes, DispatchSendsEachTypeToItsDecoder) {
    for (const Row& row : kRows) {
        const std::vector<Key> keys = keys_of(row);
        const Json json = event_object(keys, keys.size(), false);
        ST_RAW_EVENT event;
        event.uType = row.type;
        LogCapture::get().take();
        g_no_memory = true;
        EXPECT_FALSE(zel::find_event_type(row.type)->decode(json.node(), event)) << row.line;
        g_no_memory = false;
        EXPECT_EQ(zel_test::warnings(), std::string("E new(std::nothrow)") + row.record + " error");

        const bool reached = CEventHandle::GetEventPrivateInfo(json.node(), event);
        EXPECT_EQ(reached, row.type < 30 || row.type > 33) << row.line;
        EXPECT_EQ(zel_test::warnings(), reached ? "" : "E The event is unknown.event:" + std::to_string(row.type));
        if (!reached) zel::find_event_type(row.type)->decode(json.node(), event);
        EXPECT_EQ(row.dump(event.pPrivate), expected_dump(keys, 0, 0)) << row.line;
        const auto process = object_process(event);
        ASSERT_EQ(process.has_value(), zel::find_event_type(row.type)->process != nullptr) << row.line;
        for (size_t i = 0; process && i < keys.size(); ++i) {
            if (keys[i].name == "ObjectImage") EXPECT_EQ(*process->pstrImage, std::to_string(100 + i)) << row.line;
            if (keys[i].name == "ObjectCreateTime") EXPECT_EQ(process->llCreateTime, 100 + int64_t(i)) << row.line;
        }
        FreeEventPrivate(event);
        FreeEventPrivate(event);
    }
    EXPECT_EQ(zel_test::warnings(), "");
}

TEST(EventTypes, UnknownTypeKeepsItsRecord) {
    const std::pair<uint32_t, const char*> rows[] = {{0, "E The event is unknown.event:0"},
                                                     {40, "E The event is unknown.event:40"},
                                                     {0xFFFFFFFF, "E The event is unknown.event:4294967295"}};
    for (const auto& [type, line] : rows) {
        int record = 0;
        ST_RAW_EVENT event;
        event.uType = type;
        event.pPrivate = &record;
        FreeEventPrivate(event);
        EXPECT_EQ(event.pPrivate, &record);
        EXPECT_EQ(zel_test::warnings(), line);
        EXPECT_FALSE(object_process(event).has_value());
        EXPECT_FALSE(CEventHandle::GetEventPrivateInfo(Json("{}").node(), event));
        EXPECT_EQ(zel_test::warnings(), line);
    }
}

}  // namespace
