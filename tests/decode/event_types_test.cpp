#include "decode/event_types.h"

#include "decode/document.h"
#include "decode/event_records.h"
#include "support/failing_memory.h"

namespace zel_test {
namespace {

struct Row {
    uint32_t type;
    const char* record;
    const char* keys;
    std::string (*values)(const zel::EventPrivate& record);  // its members in the order of the keys
};

// clang-format off
#define ROW(type, R, keys, ...) \
    {type, #R, keys, [](const zel::EventPrivate& p) { const R& r = *p.as<R>(); return dump(__VA_ARGS__); }}
const Row kRows[] = {
    ROW(1, ST_PROCESS_CREATE,
        "ObjectPid:N ObjectTid:N ObjectImage:S ObjectCmd:S ObjectCreateTime:N ObjectUser:S ObjectGuid:S ObjectMd5:SO "
        "ObjectSha256:SO DecodedObjectCmd:SW",
        r.uPid, r.uTid, r.strImage, r.strCmd, r.llCreateTime, r.strUser, r.strGuid, r.strMd5, r.strSha256,
        r.strDecodedCmd),
    ROW(2, ST_PROCESS_EXIT, "ObjectPid:N ExitCode:N", r.uPid, r.nExitCode),
    ROW(3, ST_REMOTE_THREAD,
        "ObjectPid:N ObjectTid:N ObjectImage:S ObjectCmd:S ObjectCreateTime:N ObjectUser:S StartAddress:A "
        "StartModule:S StartFunction:S",
        r.uPid, r.uTid, r.strImage, r.strCmd, r.llCreateTime, r.strUser, r.ullStartAddress, r.strStartModule,
        r.strStartFunction),
    ROW(4, ST_LOAD_EVENT, "ObjectImage:S ObjectImageSigner:S", r.strImage, r.strImageSigner),
    ROW(5, ST_LOAD_EVENT, "ObjectImage:S ObjectImageSigner:S", r.strImage, r.strImageSigner),
    ROW(6, ST_FILE_CREATE, "FileType:S FilePath:S", r.strFileType, r.strFilePath),
    ROW(7, ST_FILE_DELETE, "FilePath:S", r.strFilePath),
    ROW(8, ST_FILE_RENAME, "FileType:S OldFilePath:S NewFilePath:S", r.strFileType, r.strOldFilePath, r.strNewFilePath),
    ROW(9, PST_FILE_TIME_CHANGE, "FilePath:S PostTime:N PreTime:N", r.strFilePath, r.llPostTime, r.llPreTime),
    ROW(10, PST_FILE_MODIFY,
        "FileType:S FilePath:S FileUser:SO FileGroup:SO FilePermissions:SO",
        r.strFileType, r.strFilePath, r.strFileUser, r.strFileGroup, r.strFilePermissions),
    ROW(11, ST_REG_OP, "KeyPath:S", r.strKeyPath),
    ROW(12, ST_REG_OP, "KeyPath:S", r.strKeyPath),
    ROW(13, ST_REG_SET,
        "KeyPath:S ValueName:S ValueData:S ValueType:N",
        r.strKeyPath, r.strValueName, r.strValueData, r.uValueType),
    ROW(14, ST_NETWORK_CONNECT,
        "DstPort:N SrcPort:N DstIp:S Protocol:S SrcIp:S",
        r.uDstPort, r.uSrcPort, r.strDstIp, r.strProtocol, r.strSrcIp),
    ROW(15, ST_DNS_QUERY, "Domain:S ResultIp:S", r.strDomain, r.strResultIp),
    ROW(16, ST_TASK_CREATE,
        "TaskName:S TaskPath:S TaskUser:S TaskFreq:S",
        r.strTaskName, r.strTaskPath, r.strTaskUser, r.strTaskFreq),
    ROW(17, ST_WMIFILTER_INFO, "Name:S Namespace:S Query:S User:S", r.strName, r.strNamespace, r.strQuery, r.strUser),
    ROW(18, ST_WMICONSUMER_INFO, "Name:S WmiType:S Object:S User:S", r.strName, r.strWmiType, r.strObject, r.strUser),
    ROW(19, ST_WMIBINDING_INFO, "FilterName:S ConsumerName:S User:S", r.strFilterName, r.strConsumerName, r.strUser),
    ROW(20, ST_ACCOUNT_CREATE,
        "UserSid:S UserName:S DomainName:S TargetUserSid:S TargetUserName:S TargetDomainName:S",
        r.strUserSid, r.strUserName, r.strDomainName, r.strTargetUserSid, r.strTargetUserName,
        r.strTargetDomainName),
    ROW(21, ST_ACCOUNT_LOGON,
        "UserSid:S UserName:S DomainName:S TargetUserSid:S TargetUserName:S TargetDomainName:S TargetLongonType:N",
        r.strUserSid, r.strUserName, r.strDomainName, r.strTargetUserSid, r.strTargetUserName,
        r.strTargetDomainName, r.uTargetLogonType),
    ROW(22, ST_SVRCREATE_INFO,
        "ServiceCmd:S ServiceName:S ServiceStartType:N",
        r.strServiceCmd, r.strServiceName, r.llServiceStartType),
    ROW(23, ST_SVRDEL_INFO, "ServiceName:S", r.strServiceName),
    ROW(24, ST_SVRUPDATE_INFO,
        "ServiceCmd:S ServiceName:S StartPost:N StartPre:N",
        r.strServiceCmd, r.strServiceName, r.uStartPost, r.uStartPre),
    ROW(25, ST_PORTLISTEN_INFO, "Address:S Protocol:S Port:N", r.strAddress, r.strProtocol, r.uPort),
    ROW(26, ST_FILE_OPEN_INFO, "FilePath:S FileType:S", r.strFilePath, r.strFileType),
    ROW(27, ST_SYMBOL_LINK_INFO, "LinkName:S Target:S", r.strLinkName, r.strTarget),
    ROW(28, ST_NAMED_PIPE_CREATE_INFO, "PipeName:S", r.strPipeName),
    ROW(29, ST_NAMED_PIPE_CONNECT_INFO, "PipeName:S", r.strPipeName),
    ROW(30, ST_PROCESS_TAMPERING_INFO,
        "ObjectPid:N ObjectCreateTime:N ObjectImage:S ObjectCmd:S TamperedImage:S TamperType:N",
        r.uPid, r.llCreateTime, r.strImage, r.strCmd, r.strTamperedImage, r.uTamperType),
    ROW(31, ST_DLL_INJECT_INFO,
        "ObjectPid:N ObjectTid:N ObjectCreateTime:N ObjectImage:S ObjectCmd:S ObjectThreadStartAddr:S "
        "InjectedDllPath:S",
        r.uPid, r.uTid, r.llCreateTime, r.strImage, r.strCmd, r.strThreadStartAddr, r.strInjectedDllPath),
    ROW(32, ST_REFLECTIVE_INJECT_INFO,
        "ObjectPid:N ObjectTid:N ObjectCreateTime:N ObjectImage:S ObjectCmd:S ObjectThreadStartAddr:S "
        "InjectedDllPath:SW InjectDllCreateTime:NW",
        r.uPid, r.uTid, r.llCreateTime, r.strImage, r.strCmd, r.strThreadStartAddr, r.strInjectedDllPath,
        r.llInjectDllCreateTime),
    ROW(33, ST_INJECT_REPORT_INFO,
        "ObjectPid:N ObjectImage:S ObjectCreateTime:N InjectType:N",
        r.uPid, r.strImage, r.llCreateTime, r.uInjectType),
    ROW(34, _ST_SYSCALL_SOCKET, "Domain:N Type:N Proto:N", r.nDomain, r.nType, r.nProto),
    ROW(35, _ST_SYSCALL_PTRACE, "Reserved:S", r.strReserved),
    ROW(36, _ST_SYSCALL_USERFAULTFD, "Reserved:S", r.strReserved),
    ROW(37, _ST_SYSCALL_COREPATTERN, "Reserved:S", r.strReserved),
    ROW(38, ST_SYSCALL_SYSCONNECT, "UnixPath:S Port:N Inode:N FdId:N", r.strUnixPath, r.uPort, r.ullInode, r.uFdId),
    ROW(39, ST_FD_INFO,
        "FDContent:S FDType:S FDPermissions:S FDId:N FDLinkInode:N",
        r.strFdContent, r.strFdType, r.strFdPermissions, r.uFdId, r.ullFdLinkInode),
};
// clang-format on

bool is_dispatched(uint32_t type) { return type < 30 || type > 33; }
bool has_process(uint32_t type) { return type == 1 || type == 3 || !is_dispatched(type); }

bool decode(const Row& row, const cJSON* json, ST_RAW_EVENT& stEvent) {
    stEvent.uType = row.type;
    if (is_dispatched(row.type)) return CEventHandle::GetEventPrivateInfo(json, stEvent);
    EXPECT_FALSE(CEventHandle::GetEventPrivateInfo(json, stEvent));
    EXPECT_EQ(take_log(), "E The event is unknown.event:" + std::to_string(row.type));
    return zel::find_event_type(row.type)->decode(json, stEvent);
}

TEST(EventTypes, DecodeAndFreeTheirRecord) {
    ASSERT_EQ(zel::event_types().size(), std::size(kRows));
    for (const Row& row : kRows) {
        check_keys(row.keys, zel::Words::not_type, "", [&row](const std::string& text, const std::string& values) {
            const Tree json = parse('{' + text + '}');
            ST_RAW_EVENT stEvent;
            EXPECT_EQ(decode(row, json.get(), stEvent), !values.empty()) << row.record;
            EXPECT_EQ(stEvent.pPrivate ? row.values(stEvent.pPrivate) : "", values) << row.record;
            const auto process = object_process(stEvent);
            EXPECT_EQ(process.has_value(), has_process(row.type) && !values.empty()) << row.record;
            if (process.has_value()) {
                for (const std::string& part :
                     {dump(process->uPid), dump(process->llCreateTime), dump(*process->pstrImage)})
                    EXPECT_NE((' ' + values).find(' ' + part), std::string::npos) << row.record;
            }
            FreeEventPrivate(stEvent);
            FreeEventPrivate(stEvent);
            EXPECT_FALSE(stEvent.pPrivate);
            return take_log();
        });
    }
}

TEST(EventTypes, NameTheRecordThatGetsNoMemory) {
    for (const Row& row : kRows) {
        const Tree json = parse("{}");
        ST_RAW_EVENT stEvent;
        const auto* type = zel::find_event_type(row.type);
        {
            const FailingMemory first(0);
            EXPECT_FALSE(type->decode(json.get(), stEvent)) << row.record;
        }
        EXPECT_EQ(take_log(), std::string("E new(std::nothrow)") + row.record + " error");
        EXPECT_FALSE(stEvent.pPrivate);
    }
}

TEST(EventTypes, AnEventOfUnknownTypeKeepsItsRecord) {
    for (const uint32_t type : {0U, 40U, 0xFFFFFFFFU}) {
        ST_RAW_EVENT stEvent;
        stEvent.uType = type;
        stEvent.pPrivate = zel::EventPrivate(std::make_unique<ST_FILE_DELETE>());
        FreeEventPrivate(stEvent);
        EXPECT_TRUE(stEvent.pPrivate);
        EXPECT_FALSE(object_process(stEvent).has_value());
        EXPECT_EQ(take_log(), "E The event is unknown.event:" + std::to_string(type));
    }
}

TEST(EventTypes, AnEventHandsItsRecordOnWhenItMoves) {
    ST_RAW_EVENT first;
    first.pPrivate = zel::EventPrivate(std::make_unique<ST_FILE_DELETE>("path"));
    EXPECT_EQ(first.pPrivate.as<ST_PROCESS_CREATE>(), nullptr) << "another record";
    const ST_RAW_EVENT second = std::move(first);
    EXPECT_FALSE(first.pPrivate);
    EXPECT_EQ(second.pPrivate.as<ST_FILE_DELETE>()->strFilePath, "path");
}

TEST(Fields, TruncateNumbersAndMarkThoseOutsideTheRange) {
    constexpr int64_t kLowest = INT64_MIN;
    constexpr uint64_t k2To63 = 1ULL << 63;
    const struct {
        double number;
        int64_t as_signed;
        uint64_t as_unsigned;
    } rows[] = {
        {-3.9, -3, UINT64_MAX - 2},
        {9007199254740993.0, 9007199254740992, 9007199254740992},  // 2^53 + 1
        {0x1.fffffffffffffp62, 9223372036854774784, 9223372036854774784},
        {0x1p63, kLowest, k2To63},
        {-0x1p63, kLowest, k2To63},
        {-0x1.0000000000001p63, kLowest, k2To63},
        {0x1.fffffffffffffp63, kLowest, 18446744073709549568U},
        {0x1p64, kLowest, 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(zel::truncate_signed(row.number), row.as_signed) << row.number;
        EXPECT_EQ(zel::truncate_unsigned(row.number), row.as_unsigned) << row.number;
    }
}

TEST(Fields, ReadTextsAsDecimalNumbers) {
    const std::pair<const char*, uint64_t> rows[] = {
        {"18446744073709551615", UINT64_MAX}, {" 12x", 12}, {"010", 10}, {"0x10", 0}, {"-1", UINT64_MAX}, {"", 0}};
    for (const auto& [text, number] : rows) EXPECT_EQ(zel::parse_decimal(text), number) << text;
}

void expect_as_cjson(const std::string& object, const std::string& key) {
    const Tree json = parse(object);
    ASSERT_EQ(zel::JsonObject(json.get()).find(key.c_str()), cJSON_GetObjectItem(json.get(), key.c_str()))
        << key << " in " << object;
}

TEST(JsonObject, FindsEachMemberAndTheFirstOfEqualNames) {
    for (const size_t size : {1U, 63U, 64U, 65U, 66U}) {
        std::vector<std::string> parts;
        for (size_t i = 0; i < size; ++i) parts.push_back("\"k" + std::to_string(i) + "\":0");
        const std::string all = joined(parts);
        for (size_t i = 0; i <= size; ++i) {
            const std::string number = std::to_string(i);
            expect_as_cjson('{' + all + '}', "K" + number);
            expect_as_cjson('{' + all + ",\"K" + number + "\":1}", "k" + number);
        }
    }
}

// Short names from few letters: many doubles, many collisions.
TEST(JsonObject, FindsWhatCjsonFinds) {
    uint32_t seed = 1;
    const auto random = [&seed](uint32_t below) { return (seed = seed * 1664525 + 1013904223) / 65536 % below; };
    const auto name = [&] {
        std::string text;
        for (uint32_t i = random(4); i > 0; --i) text += "abAB_`@Z"[random(8)];
        return text;
    };
    for (int round = 0; round < 2000; ++round) {
        std::string text = "{\"first\":[0]";
        for (uint32_t i = random(120); i > 0; --i) text += ",\"" + name() + "\":0";
        expect_as_cjson(text + '}', name());
    }
}

}  // namespace
}  // namespace zel_test
