// Event decoders and the table of event types.
#include <iterator>
#include <memory>
#include <new>

#include "common/checks.h"
#include "common/log.h"
#include "decode/event_records.h"
#include "decode/event_types.h"
#include "decode/json_fields.h"
#include "decode/jsonparse.h"

using zel::Decimal;
using zel::EventType;
using zel::Field;
using zel::JsonObject;
using zel::Need;
using zel::Widened;
using zel::Words;

namespace {

template <class R>
bool decode_record(const JsonObject& object, ST_RAW_EVENT& event, std::span<const Field<R>> fields,
                   const char* record_name, std::source_location where = std::source_location::current()) {
    std::unique_ptr<R> record(new (std::nothrow) R);
    if (record == nullptr) {
        LOG_ERROR_AT(where, "new(std::nothrow)%s error", record_name);
        return false;
    }
    const bool read = zel::read_fields(object, *record, fields, Words::not_type, where);
    event.pPrivate = read ? record.release() : nullptr;
    return read;
}

}  // namespace

// A decoder is its name, its record R, and the keys in reading order, which is not always the order of the members. The
// line in the log is that of the decoder's row.
#define ZEL_EVENT_DECODER(function, record, ...)                                            \
    bool CEventHandle::function(const JsonObject& pjRawEventArray, ST_RAW_EVENT& stEvent) { \
        using R = record;                                                                   \
        static constexpr Field<R> kFields[] = {__VA_ARGS__};                                \
        ZEL_ASSERT(pjRawEventArray);                                                        \
        return decode_record<R>(pjRawEventArray, stEvent, kFields, #record);                \
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

template <class R>
consteval EventType row(uint32_t type, CEventHandle::EventDecoder* decode, Dispatch dispatch = Dispatch::yes) {
    EventType result = {type, decode, [](void* record) { delete static_cast<R*>(record); }, nullptr,
                        dispatch == Dispatch::yes};
    if constexpr (requires(R r) { r.uPid, r.llCreateTime, r.strImage; }) {
        result.process = [](const void* record) {
            const R& process = *static_cast<const R*>(record);
            return ProcessParty{process.uPid, process.llCreateTime, &process.strImage};
        };
    }
    return result;
}

using Handle = CEventHandle;

constexpr EventType kEventTypes[] = {
    row<ST_PROCESS_CREATE>(1, Handle::GetProcessCreateInfo),
    row<ST_PROCESS_EXIT>(2, Handle::GetProcessTerminateInfo),
    row<ST_REMOTE_THREAD>(3, Handle::GetRemoteThreadCreateInfo),
    row<ST_LOAD_EVENT>(4, Handle::GetImageLoadInfo),
    row<ST_LOAD_EVENT>(5, Handle::GetImageLoadInfo),
    row<ST_FILE_CREATE>(6, Handle::GetFileCreateInfo),
    row<ST_FILE_DELETE>(7, Handle::GetFileDeleteInfo),
    row<ST_FILE_RENAME>(8, Handle::GetFileRenameInfo),
    row<PST_FILE_TIME_CHANGE>(9, Handle::GetFileTimeChange),
    row<PST_FILE_MODIFY>(10, Handle::GetFileModify),
    row<ST_REG_OP>(11, Handle::GetRegOptInfo),
    row<ST_REG_OP>(12, Handle::GetRegOptInfo),
    row<ST_REG_SET>(13, Handle::GetRegSetValueInfo),
    row<ST_NETWORK_CONNECT>(14, Handle::GetNetworkConnectInfo),
    row<ST_DNS_QUERY>(15, Handle::GetDNSInfo),
    row<ST_TASK_CREATE>(16, Handle::GetTaskCreateInfo),
    row<ST_WMIFILTER_INFO>(17, Handle::GetWmiFilterCreateInfo),
    row<ST_WMICONSUMER_INFO>(18, Handle::GetWmiConsumerCreateInfo),
    row<ST_WMIBINDING_INFO>(19, Handle::GetWmiBindingCreateInfo),
    row<ST_ACCOUNT_CREATE>(20, Handle::GetAccountCreateInfo),
    row<ST_ACCOUNT_LOGON>(21, Handle::GetAccountLogonInfo),
    row<ST_SVRCREATE_INFO>(22, Handle::GetServiceCreateInfo),
    row<ST_SVRDEL_INFO>(23, Handle::GetServiceDeleteInfo),
    row<ST_SVRUPDATE_INFO>(24, Handle::GetServiceUpdateInfo),
    row<ST_PORTLISTEN_INFO>(25, Handle::GetPortListenInfo),
    row<ST_FILE_OPEN_INFO>(26, Handle::GetFileOpenInfo),
    row<ST_SYMBOL_LINK_INFO>(27, Handle::GetSymbolLinkInfo),
    row<ST_NAMED_PIPE_CREATE_INFO>(28, Handle::GetNamedPipeCreateInfo),
    row<ST_NAMED_PIPE_CONNECT_INFO>(29, Handle::GetNamedPipeConnectInfo),
    // The builder has no object for these: their documents are refused.
    row<ST_PROCESS_TAMPERING_INFO>(30, Handle::GetProcessTamperingInfo, Dispatch::no),
    row<ST_DLL_INJECT_INFO>(31, Handle::GetDllInjectInfo, Dispatch::no),
    row<ST_REFLECTIVE_INJECT_INFO>(32, Handle::GetReflectiveInjectInfo, Dispatch::no),
    row<ST_INJECT_REPORT_INFO>(33, Handle::GetInjectReportInfo, Dispatch::no),
    row<_ST_SYSCALL_SOCKET>(34, Handle::GetSyscallSocketInfo),
    row<_ST_SYSCALL_PTRACE>(35, Handle::GetSyscallPtraceInfo),
    row<_ST_SYSCALL_USERFAULTFD>(36, Handle::GetSyscallUserfaultfdInfo),
    row<_ST_SYSCALL_COREPATTERN>(37, Handle::GetSyscallCorePatternInfo),
    row<ST_SYSCALL_SYSCONNECT>(38, Handle::GetSyscallConnectInfo),
    row<ST_FD_INFO>(39, Handle::GetFdInfo),
};

constexpr bool rows_in_order() {
    for (uint32_t i = 0; i < std::size(kEventTypes); ++i)
        if (kEventTypes[i].uType != i + 1) return false;
    return true;
}
static_assert(rows_in_order(), "a type is looked up by its place");

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
        return false;
    }
    return type->decode(pjRawEventArray, stEvent);
}
