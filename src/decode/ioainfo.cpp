// Event decoders and the table of event types. A decoder reads what an event acted upon, its object, into a new record.
// Each event type has one row in the table; types 4 and 5 share a decoder, as do 11 and 12.
#include <iterator>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "common/checks.h"
#include "common/log.h"
#include "decode/event_records.h"
#include "decode/event_types.h"
#include "decode/json_fields.h"
#include "decode/jsonparse.h"
#include "decode/observer.h"

using zel::Decimal;
using zel::EventType;
using zel::Field;
using zel::JsonObject;
using zel::Widened;
using zel::Words;

namespace {

// What all decoders do. A record that cannot be read to its end is freed, and the event has none then.
template <class R>
bool decode_record(const JsonObject& object, ST_RAW_EVENT& event, std::span<const Field<R>> fields,
                   const char* record_name, std::source_location where = std::source_location::current()) {
    std::unique_ptr<R> record(new (std::nothrow) R);
    if (record == nullptr) {
        LOG_ERROR_AT(where, "new(std::nothrow)%s error", record_name);
        return false;
    }
    const bool read = zel::read_fields(object, *record, fields, Words::not_type, where);
    // An older record of the event ends here, also when the new one could not be read.
    event.pPrivate = read ? zel::EventPrivate(std::move(record)) : zel::EventPrivate();
    return read;
}

}  // namespace

namespace zel {

// The record that a decoder makes and the keys of it. The table compares the record with that of the decoder's type.
template <CEventHandle::EventDecoder* decoder>
struct Makes;

}  // namespace zel

// A decoder is its name, its record R, and the keys in reading order, which is not always the order of the members. The
// line in the log is that of the decoder's row.
#define ZEL_EVENT_DECODER(function, record, ...)                                            \
    template <>                                                                             \
    struct zel::Makes<&CEventHandle::function> {                                            \
        using R = record;                                                                   \
        static constexpr Field<R> kFields[] = {__VA_ARGS__};                                \
        static constexpr auto kKeys = zel::key_rows(kFields);                               \
    };                                                                                      \
    bool CEventHandle::function(const JsonObject& pjRawEventArray, ST_RAW_EVENT& stEvent) { \
        using Decoder = zel::Makes<&CEventHandle::function>;                                \
        ZEL_ASSERT(pjRawEventArray);                                                        \
        return decode_record<record>(pjRawEventArray, stEvent, Decoder::kFields, #record);  \
    }

// clang-format off
ZEL_EVENT_DECODER(GetProcessCreateInfo, ST_PROCESS_CREATE,
    {"ObjectPid", &R::uPid}, {"ObjectTid", &R::uTid}, {"ObjectImage", &R::strImage}, {"ObjectCmd", &R::strCmd},
    {"ObjectCreateTime", &R::llCreateTime}, {"ObjectUser", &R::strUser}, {"ObjectGuid", &R::strGuid},
    {"ObjectMd5", &R::strMd5, Need::optional}, {"ObjectSha256", &R::strSha256, Need::optional},
    {"DecodedObjectCmd", &R::strDecodedCmd, Need::warned})
ZEL_EVENT_DECODER(GetProcessTerminateInfo, ST_PROCESS_EXIT,
    {"ObjectPid", &R::uPid}, {"ExitCode", &R::nExitCode})
ZEL_EVENT_DECODER(GetRemoteThreadCreateInfo, ST_REMOTE_THREAD,
    {"ObjectPid", &R::uPid}, {"ObjectTid", &R::uTid}, {"ObjectImage", &R::strImage}, {"ObjectCmd", &R::strCmd},
    {"ObjectCreateTime", &R::llCreateTime}, {"ObjectUser", &R::strUser},
    {"StartAddress", Decimal{&R::ullStartAddress}},  // text, as an address can be above 2^53
    {"StartModule", &R::strStartModule}, {"StartFunction", &R::strStartFunction})
ZEL_EVENT_DECODER(GetImageLoadInfo, ST_LOAD_EVENT,
    {"ObjectImage", &R::strImage}, {"ObjectImageSigner", &R::strImageSigner})
ZEL_EVENT_DECODER(GetFileCreateInfo, ST_FILE_CREATE,
    {"FileType", &R::strFileType}, {"FilePath", &R::strFilePath})
ZEL_EVENT_DECODER(GetFileDeleteInfo, ST_FILE_DELETE,
    {"FilePath", &R::strFilePath})
ZEL_EVENT_DECODER(GetFileRenameInfo, ST_FILE_RENAME,
    {"FileType", &R::strFileType}, {"OldFilePath", &R::strOldFilePath}, {"NewFilePath", &R::strNewFilePath})
ZEL_EVENT_DECODER(GetFileTimeChange, PST_FILE_TIME_CHANGE,
    {"FilePath", &R::strFilePath}, {"PostTime", &R::llPostTime}, {"PreTime", &R::llPreTime})
ZEL_EVENT_DECODER(GetFileModify, PST_FILE_MODIFY,
    {"FileType", &R::strFileType}, {"FilePath", &R::strFilePath}, {"FileUser", &R::strFileUser, Need::optional},
    {"FileGroup", &R::strFileGroup, Need::optional}, {"FilePermissions", &R::strFilePermissions, Need::optional})
ZEL_EVENT_DECODER(GetRegOptInfo, ST_REG_OP,
    {"KeyPath", &R::strKeyPath})
ZEL_EVENT_DECODER(GetRegSetValueInfo, ST_REG_SET,
    {"KeyPath", &R::strKeyPath}, {"ValueName", &R::strValueName}, {"ValueData", &R::strValueData},
    {"ValueType", &R::uValueType})
ZEL_EVENT_DECODER(GetNetworkConnectInfo, ST_NETWORK_CONNECT,
    {"DstPort", &R::uDstPort}, {"SrcPort", &R::uSrcPort}, {"DstIp", &R::strDstIp}, {"Protocol", &R::strProtocol},
    {"SrcIp", &R::strSrcIp})
ZEL_EVENT_DECODER(GetDNSInfo, ST_DNS_QUERY,
    {"Domain", &R::strDomain}, {"ResultIp", &R::strResultIp})
ZEL_EVENT_DECODER(GetTaskCreateInfo, ST_TASK_CREATE,
    {"TaskName", &R::strTaskName}, {"TaskPath", &R::strTaskPath}, {"TaskUser", &R::strTaskUser},
    {"TaskFreq", &R::strTaskFreq})
ZEL_EVENT_DECODER(GetWmiFilterCreateInfo, ST_WMIFILTER_INFO,
    {"Name", &R::strName}, {"Namespace", &R::strNamespace}, {"Query", &R::strQuery}, {"User", &R::strUser})
ZEL_EVENT_DECODER(GetWmiConsumerCreateInfo, ST_WMICONSUMER_INFO,
    {"Name", &R::strName}, {"WmiType", &R::strWmiType}, {"Object", &R::strObject}, {"User", &R::strUser})
ZEL_EVENT_DECODER(GetWmiBindingCreateInfo, ST_WMIBINDING_INFO,
    {"FilterName", &R::strFilterName}, {"ConsumerName", &R::strConsumerName}, {"User", &R::strUser})
ZEL_EVENT_DECODER(GetAccountCreateInfo, ST_ACCOUNT_CREATE,
    {"UserSid", &R::strUserSid}, {"UserName", &R::strUserName}, {"DomainName", &R::strDomainName},
    {"TargetUserSid", &R::strTargetUserSid}, {"TargetUserName", &R::strTargetUserName},
    {"TargetDomainName", &R::strTargetDomainName})
ZEL_EVENT_DECODER(GetAccountLogonInfo, ST_ACCOUNT_LOGON,
    {"UserSid", &R::strUserSid}, {"UserName", &R::strUserName}, {"DomainName", &R::strDomainName},
    {"TargetUserSid", &R::strTargetUserSid}, {"TargetUserName", &R::strTargetUserName},
    {"TargetDomainName", &R::strTargetDomainName},
    {"TargetLongonType", &R::uTargetLogonType})  // the engines spell it so
ZEL_EVENT_DECODER(GetServiceCreateInfo, ST_SVRCREATE_INFO,
    {"ServiceCmd", &R::strServiceCmd}, {"ServiceName", &R::strServiceName},
    {"ServiceStartType", Widened{&R::llServiceStartType}})
ZEL_EVENT_DECODER(GetServiceDeleteInfo, ST_SVRDEL_INFO,
    {"ServiceName", &R::strServiceName})
ZEL_EVENT_DECODER(GetServiceUpdateInfo, ST_SVRUPDATE_INFO,
    {"ServiceCmd", &R::strServiceCmd}, {"ServiceName", &R::strServiceName}, {"StartPost", &R::uStartPost},
    {"StartPre", &R::uStartPre})
ZEL_EVENT_DECODER(GetPortListenInfo, ST_PORTLISTEN_INFO,
    {"Address", &R::strAddress}, {"Protocol", &R::strProtocol}, {"Port", &R::uPort})
ZEL_EVENT_DECODER(GetFileOpenInfo, ST_FILE_OPEN_INFO,
    {"FilePath", &R::strFilePath}, {"FileType", &R::strFileType})
ZEL_EVENT_DECODER(GetSymbolLinkInfo, ST_SYMBOL_LINK_INFO,
    {"LinkName", &R::strLinkName}, {"Target", &R::strTarget})
ZEL_EVENT_DECODER(GetNamedPipeCreateInfo, ST_NAMED_PIPE_CREATE_INFO,
    {"PipeName", &R::strPipeName})
ZEL_EVENT_DECODER(GetNamedPipeConnectInfo, ST_NAMED_PIPE_CONNECT_INFO,
    {"PipeName", &R::strPipeName})
ZEL_EVENT_DECODER(GetProcessTamperingInfo, ST_PROCESS_TAMPERING_INFO,
    {"ObjectPid", &R::uPid}, {"ObjectCreateTime", &R::llCreateTime}, {"ObjectImage", &R::strImage},
    {"ObjectCmd", &R::strCmd}, {"TamperedImage", &R::strTamperedImage}, {"TamperType", &R::uTamperType})
ZEL_EVENT_DECODER(GetDllInjectInfo, ST_DLL_INJECT_INFO,
    {"ObjectPid", &R::uPid}, {"ObjectTid", &R::uTid}, {"ObjectCreateTime", &R::llCreateTime},
    {"ObjectImage", &R::strImage}, {"ObjectCmd", &R::strCmd}, {"ObjectThreadStartAddr", &R::strThreadStartAddr},
    {"InjectedDllPath", &R::strInjectedDllPath})
ZEL_EVENT_DECODER(GetReflectiveInjectInfo, ST_REFLECTIVE_INJECT_INFO,
    {"ObjectPid", &R::uPid}, {"ObjectTid", &R::uTid}, {"ObjectCreateTime", &R::llCreateTime},
    {"ObjectImage", &R::strImage}, {"ObjectCmd", &R::strCmd}, {"ObjectThreadStartAddr", &R::strThreadStartAddr},
    {"InjectedDllPath", &R::strInjectedDllPath, Need::warned},
    {"InjectDllCreateTime", Widened{&R::llInjectDllCreateTime}, Need::warned})
ZEL_EVENT_DECODER(GetInjectReportInfo, ST_INJECT_REPORT_INFO,
    {"ObjectPid", &R::uPid}, {"ObjectImage", &R::strImage}, {"ObjectCreateTime", &R::llCreateTime},
    {"InjectType", &R::uInjectType})
ZEL_EVENT_DECODER(GetSyscallSocketInfo, _ST_SYSCALL_SOCKET,
    {"Domain", &R::nDomain}, {"Type", &R::nType}, {"Proto", &R::nProto})
ZEL_EVENT_DECODER(GetSyscallPtraceInfo, _ST_SYSCALL_PTRACE,
    {"Reserved", &R::strReserved})
ZEL_EVENT_DECODER(GetSyscallUserfaultfdInfo, _ST_SYSCALL_USERFAULTFD,
    {"Reserved", &R::strReserved})
ZEL_EVENT_DECODER(GetSyscallCorePatternInfo, _ST_SYSCALL_COREPATTERN,
    {"Reserved", &R::strReserved})
ZEL_EVENT_DECODER(GetSyscallConnectInfo, ST_SYSCALL_SYSCONNECT,
    {"UnixPath", &R::strUnixPath}, {"Port", &R::uPort}, {"Inode", &R::ullInode}, {"FdId", &R::uFdId})
ZEL_EVENT_DECODER(GetFdInfo, ST_FD_INFO,
    {"FDContent", &R::strFdContent}, {"FDType", &R::strFdType}, {"FDPermissions", &R::strFdPermissions},
    {"FDId", &R::uFdId}, {"FDLinkInode", &R::ullFdLinkInode})
// clang-format on
#undef ZEL_EVENT_DECODER

namespace {

enum class Dispatch : bool { no, yes };

// A record with process id, creation time and image is a process that can be checked.
template <uint32_t uType, CEventHandle::EventDecoder* decode, Dispatch dispatch = Dispatch::yes>
consteval EventType row() {
    using R = zel::RecordOf<uType>;
    static_assert(std::is_same_v<typename zel::Makes<decode>::R, R>, "the decoder makes another type's record");
    EventType result = {uType, decode, nullptr, dispatch == Dispatch::yes, zel::Makes<decode>::kKeys};
    if constexpr (requires(R r) { r.uPid, r.llCreateTime, r.strImage; }) {
        result.process = [](const zel::EventPrivate& record) -> std::optional<ProcessParty> {
            const R* process = record.as<R>();
            if (process == nullptr) return std::nullopt;
            return ProcessParty{process->uPid, process->llCreateTime, &process->strImage};
        };
    }
    return result;
}

using Handle = CEventHandle;

constexpr EventType kEventTypes[] = {
    row<1, Handle::GetProcessCreateInfo>(),
    row<2, Handle::GetProcessTerminateInfo>(),
    row<3, Handle::GetRemoteThreadCreateInfo>(),
    row<4, Handle::GetImageLoadInfo>(),
    row<5, Handle::GetImageLoadInfo>(),
    row<6, Handle::GetFileCreateInfo>(),
    row<7, Handle::GetFileDeleteInfo>(),
    row<8, Handle::GetFileRenameInfo>(),
    row<9, Handle::GetFileTimeChange>(),
    row<10, Handle::GetFileModify>(),
    row<11, Handle::GetRegOptInfo>(),
    row<12, Handle::GetRegOptInfo>(),
    row<13, Handle::GetRegSetValueInfo>(),
    row<14, Handle::GetNetworkConnectInfo>(),
    row<15, Handle::GetDNSInfo>(),
    row<16, Handle::GetTaskCreateInfo>(),
    row<17, Handle::GetWmiFilterCreateInfo>(),
    row<18, Handle::GetWmiConsumerCreateInfo>(),
    row<19, Handle::GetWmiBindingCreateInfo>(),
    row<20, Handle::GetAccountCreateInfo>(),
    row<21, Handle::GetAccountLogonInfo>(),
    row<22, Handle::GetServiceCreateInfo>(),
    row<23, Handle::GetServiceDeleteInfo>(),
    row<24, Handle::GetServiceUpdateInfo>(),
    row<25, Handle::GetPortListenInfo>(),
    row<26, Handle::GetFileOpenInfo>(),
    row<27, Handle::GetSymbolLinkInfo>(),
    row<28, Handle::GetNamedPipeCreateInfo>(),
    row<29, Handle::GetNamedPipeConnectInfo>(),
    // The builder has no object for these: their documents are refused.
    row<30, Handle::GetProcessTamperingInfo, Dispatch::no>(),
    row<31, Handle::GetDllInjectInfo, Dispatch::no>(),
    row<32, Handle::GetReflectiveInjectInfo, Dispatch::no>(),
    row<33, Handle::GetInjectReportInfo, Dispatch::no>(),
    row<34, Handle::GetSyscallSocketInfo>(),
    row<35, Handle::GetSyscallPtraceInfo>(),
    row<36, Handle::GetSyscallUserfaultfdInfo>(),
    row<37, Handle::GetSyscallCorePatternInfo>(),
    row<38, Handle::GetSyscallConnectInfo>(),
    row<39, Handle::GetFdInfo>(),
};

constexpr bool rows_in_order() {
    for (uint32_t i = 0; i < std::size(kEventTypes); ++i)
        if (kEventTypes[i].uType != i + 1) return false;
    return true;
}
static_assert(rows_in_order(), "a type is looked up by its place");
static_assert(std::size(kEventTypes) == std::tuple_size_v<zel::EventRecords>, "each record has a decoder");

}  // namespace

std::span<const EventType> zel::event_types() { return kEventTypes; }

const EventType* zel::find_event_type(uint32_t uType) {
    return uType >= 1 && uType <= std::size(kEventTypes) ? &kEventTypes[uType - 1] : nullptr;
}

void zel::log_unknown_event(uint32_t uType, std::source_location where) {
    LOG_ERROR_AT(where, "The event is unknown.event:%u", uType);
}

bool CEventHandle::GetEventPrivateInfo(const JsonObject& pjRawEventArray, ST_RAW_EVENT& stEvent) {
    ZEL_ASSERT(pjRawEventArray);
    const EventType* type = zel::find_event_type(stEvent.uType);
    if (type == nullptr || !type->dispatched) {
        zel::log_unknown_event(stEvent.uType);
        zel::observe::unknown_number(pjRawEventArray.node(), "type");
        return false;
    }
    return type->decode(pjRawEventArray, stEvent);
}
