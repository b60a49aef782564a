#include "trace/getioaprotobuf_objects.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <utility>

#include "common/checks.h"
#include "common/common.h"
#include "common/log.h"
#include "decode/event_records.h"
#include "platform/zel_support.h"
#include "trace/field_table.h"
#include "trace/getprotobuf_steps.h"

using namespace vorn_retrace;
using zel::number, zel::text, zel::unchecked_text;

namespace {

// A file time becomes text. File times are not formatted on this platform, so the text is empty for every time.
bool time_text(int64_t time, std::string* target) {
    std::string formatted;
    CltCommon::FileTimeToString(formatted, static_cast<uint64_t>(time));
    if (!CheckDsStr(formatted)) return false;
    *target = std::move(formatted);
    return true;
}

// A time of 0 ends the process: FileTimeToString asserts that there is one.
bool fill_file_modify_time(PST_FILE_TIME_CHANGE& record, threat_event* pEvent, int) {
    file_modify_time_vertex* object = pEvent->mutable_object_file_modify_time();
    if (!zel::passed(object != nullptr, "mutable_object_file_modify_time failed!")) return false;
    if (!CheckDsStr(record.strFilePath)) return false;
    object->set_file_path(std::move(record.strFilePath));
    return time_text(record.llPostTime, object->mutable_file_post_time()) &&
           time_text(record.llPreTime, object->mutable_file_pre_time());
}

// A file opened for a look at it. The path comes from a document: opening must not wait for the writer of a pipe and
// must not make a terminal ours.
class OpenFile {
public:
    explicit OpenFile(const char* path) : descriptor_(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
    ~OpenFile() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    // False for what has no size: pipes, devices, sockets. It is the open file that is looked at, since another one can
    // have the path by now.
    bool is_file_or_folder() const {
        struct stat status{};
        return descriptor_ >= 0 && fstat(descriptor_, &status) == 0 &&
               (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode));
    }
    // Negative where the file system does not say.
    int64_t size() const { return lseek(descriptor_, 0, SEEK_END); }

private:
    int descriptor_;
};

// Bytes of a file; none, with an ERROR line, when it does not open.
std::optional<uint64_t> file_size(const char* path) {
    const OpenFile file(path);
    if (!file.is_file_or_folder()) {
        LOG_ERROR("open file error");
        return std::nullopt;
    }
    const int64_t size = file.size();
    if (size < 0) return std::nullopt;
    return static_cast<uint64_t>(size);
}

// What a modified file has besides its size. Owner and group are not sent.
constexpr auto kFileModify =
    std::make_tuple(text(&file_modify_vertex::mutable_file_path, &PST_FILE_MODIFY::strFilePath),
                    text(&file_modify_vertex::mutable_file_type, &PST_FILE_MODIFY::strFileType),
                    text(&file_modify_vertex::mutable_file_permissions, &PST_FILE_MODIFY::strFilePermissions));

// The one object that is looked up outside its record: the size is that of the file now. A file that has gone costs no
// alert.
bool fill_file_modify(PST_FILE_MODIFY& record, threat_event* pEvent, int nContainerInitPid) {
    file_modify_vertex* object = pEvent->mutable_object_file_modify();
    if (!zel::passed(object != nullptr, "mutable_object_file_modify failed!")) return false;
    if (!zel::fill(*object, record, kFileModify)) return false;

    // A file in a container has another path for the agent than for the process that wrote it.
    const std::string& path = object->file_path();  // the record's own text has moved there
    std::array<char, 4096> agent_path{};
    get_agent_path(path.c_str(), static_cast<uint32_t>(path.size()), nContainerInitPid, agent_path.data(),
                   static_cast<uint32_t>(agent_path.size()));
    LOG_DEBUG("file path:%s, docker_file_path:%s", path.c_str(), agent_path.data());
    if (const std::optional<uint64_t> size = file_size(agent_path.data()); size.has_value())
        object->set_file_size(*size);
    else
        LOG_ERROR("get file size error");
    return true;
}

// A row whose object is a copy of the record's members. Its texts are checked in the row's order.
template <uint32_t uType, class Object, class... Fields>
struct TableRow {
    static constexpr uint32_t kType = uType;
    VORN_TRACE_EVENT_TYPE type;
    Object* (threat_event::*take)();
    const char* failure;  // logged when the object cannot be taken
    std::tuple<Fields...> fields;

    bool fill(zel::RecordOf<uType>& record, threat_event* pEvent, int) const {
        Object* object = (pEvent->*take)();
        return zel::passed(object != nullptr, failure) && zel::fill(*object, record, fields);
    }
};

template <uint32_t uType, class Object, class... Fields>
constexpr TableRow<uType, Object, Fields...> row(VORN_TRACE_EVENT_TYPE type, Object* (threat_event::*take)(),
                                                 const char* failure, Fields... fields) {
    static_assert((std::is_same_v<typename Fields::RecordType, zel::RecordOf<uType>> && ...),
                  "the row reads another type's record");
    return {type, take, failure, {fields...}};
}

// A row whose object takes more than copying.
template <uint32_t uType>
struct FunctionRow {
    static constexpr uint32_t kType = uType;
    VORN_TRACE_EVENT_TYPE type;
    bool (*fill)(zel::RecordOf<uType>& record, threat_event* pEvent, int nContainerInitPid);
};

// A type stands once. Members that no row names are not sent. Some failure texts name another row's object: operators
// know them so.
constexpr auto kRows = std::make_tuple(
    row<1>(VORN_TRACE_PROCESS, &threat_event::mutable_object_processcreate, "mutable_object_processcreate failed!",
           text(&process_vertex::mutable_process_path, &ST_PROCESS_CREATE::strImage),
           text(&process_vertex::mutable_process_commandline, &ST_PROCESS_CREATE::strCmd),
           text(&process_vertex::mutable_process_user, &ST_PROCESS_CREATE::strUser),
           text(&process_vertex::mutable_process_guid, &ST_PROCESS_CREATE::strGuid),
           text(&process_vertex::mutable_process_md5, &ST_PROCESS_CREATE::strMd5),
           text(&process_vertex::mutable_process_sha256, &ST_PROCESS_CREATE::strSha256),
           number(&process_vertex::set_process_id, &ST_PROCESS_CREATE::uPid),
           number(&process_vertex::set_thread_tid, &ST_PROCESS_CREATE::uTid),
           number(&process_vertex::set_process_createtime, &ST_PROCESS_CREATE::llCreateTime)),
    row<2>(VORN_TRACE_PROCESS_EXIT, &threat_event::mutable_object_exit, "mutable_object_exit failed!",
           number(&processexit_vertex::set_process_exit_code, &ST_PROCESS_EXIT::nExitCode),
           number(&processexit_vertex::set_process_pid, &ST_PROCESS_EXIT::uPid)),
    row<3>(VORN_TRACE_REMOTETHREAD, &threat_event::mutable_object_remote_thread, "mutable_object_remote_thread failed!",
           text(&remotethread_vertex::mutable_process_path, &ST_REMOTE_THREAD::strImage),
           text(&remotethread_vertex::mutable_module_name, &ST_REMOTE_THREAD::strStartModule),
           text(&remotethread_vertex::mutable_function_name, &ST_REMOTE_THREAD::strStartFunction),
           number(&remotethread_vertex::set_process_id, &ST_REMOTE_THREAD::uPid),
           number(&remotethread_vertex::set_thread_id, &ST_REMOTE_THREAD::uTid),
           number(&remotethread_vertex::set_process_create_time, &ST_REMOTE_THREAD::llCreateTime),
           number(&remotethread_vertex::set_thread_address, &ST_REMOTE_THREAD::ullStartAddress)),
    row<4>(VORN_TRACE_IMGLOAD, &threat_event::mutable_object_image_load, "mutable_object_image_load failed!",
           text(&image_load::mutable_file_path, &ST_LOAD_EVENT::strImage)),
    row<5>(VORN_TRACE_DRIVERLOAD, &threat_event::mutable_object_image_driver, "mutable_object_image_driver failed!",
           text(&image_driver::mutable_file_path, &ST_LOAD_EVENT::strImage),
           text(&image_driver::mutable_signer, &ST_LOAD_EVENT::strImageSigner)),
    row<6>(VORN_TRACE_FILE_CREATE, &threat_event::mutable_object_file_create, "mutable_object_file_create failed!",
           text(&file_create_vertex::mutable_file_path, &ST_FILE_CREATE::strFilePath),
           text(&file_create_vertex::mutable_file_type, &ST_FILE_CREATE::strFileType)),
    row<7>(VORN_TRACE_FILE_DELETE, &threat_event::mutable_object_file_delete, "mutable_object_file_delete failed!",
           text(&file_delete_vertex::mutable_file_path, &ST_FILE_DELETE::strFilePath)),
    row<8>(VORN_TRACE_FILE_RENAME, &threat_event::mutable_object_file_rename, "mutable_object_file_rename failed!",
           text(&file_rename_vertex::mutable_file_post_path, &ST_FILE_RENAME::strNewFilePath),
           text(&file_rename_vertex::mutable_file_pre_path, &ST_FILE_RENAME::strOldFilePath),
           text(&file_rename_vertex::mutable_file_type, &ST_FILE_RENAME::strFileType)),
    FunctionRow<9>{VORN_TRACE_FILE_MODIFY_TIME, fill_file_modify_time},
    FunctionRow<10>{VORN_TRACE_FILE_MODIFY, fill_file_modify},
    row<11>(VORN_TRACE_REG_CREATE, &threat_event::mutable_object_reg_create, "mutable_object_reg_create failed!",
            text(&reg_create_vertex::mutable_reg_key, &ST_REG_OP::strKeyPath)),
    row<12>(VORN_TRACE_REG_DELETE, &threat_event::mutable_object_reg_delete, "mutable_object_reg_delete failed!",
            text(&reg_delete_vertex::mutable_reg_key, &ST_REG_OP::strKeyPath)),
    row<13>(VORN_TRACE_REG_SET, &threat_event::mutable_object_reg_set, "mutable_object_reg_set failed!",
            text(&reg_set_vertex::mutable_reg_key, &ST_REG_SET::strKeyPath),
            text(&reg_set_vertex::mutable_reg_name, &ST_REG_SET::strValueName),
            text(&reg_set_vertex::mutable_reg_value, &ST_REG_SET::strValueData),
            number(&reg_set_vertex::set_value_type, &ST_REG_SET::uValueType)),
    row<14>(VORN_TRACE_NET_CONNECT, &threat_event::mutable_object_net_connect, "mutable_object_net_connect failed!",
            text(&net_connect_vertex::mutable_net_dst_ip, &ST_NETWORK_CONNECT::strDstIp),
            text(&net_connect_vertex::mutable_net_src_ip, &ST_NETWORK_CONNECT::strSrcIp),
            text(&net_connect_vertex::mutable_net_proto, &ST_NETWORK_CONNECT::strProtocol),
            number(&net_connect_vertex::set_net_dst_port, &ST_NETWORK_CONNECT::uDstPort),
            number(&net_connect_vertex::set_net_src_port, &ST_NETWORK_CONNECT::uSrcPort)),
    row<15>(VORN_TRACE_DNS_QUERY, &threat_event::mutable_object_dns_query, "mutable_object_file_rename failed!",
            text(&dns_query_vertex::mutable_dns_name, &ST_DNS_QUERY::strDomain),
            text(&dns_query_vertex::mutable_dns_results, &ST_DNS_QUERY::strResultIp)),
    row<16>(VORN_TRACE_TASK, &threat_event::mutable_object_taskcreate, "mutable_object_file_rename failed!",
            text(&schtasks_vertex::mutable_task_name, &ST_TASK_CREATE::strTaskName),
            text(&schtasks_vertex::mutable_task_path, &ST_TASK_CREATE::strTaskPath),
            text(&schtasks_vertex::mutable_task_user, &ST_TASK_CREATE::strTaskUser),
            text(&schtasks_vertex::mutable_task_frequency, &ST_TASK_CREATE::strTaskFreq)),
    row<17>(VORN_TRACE_WMI_FILTER, &threat_event::mutable_object_wmi_filter, "mutable_object_wmi_filter failed!",
            text(&wmi_filter_vertex::mutable_name, &ST_WMIFILTER_INFO::strName),
            text(&wmi_filter_vertex::mutable_name_space, &ST_WMIFILTER_INFO::strNamespace),
            text(&wmi_filter_vertex::mutable_query, &ST_WMIFILTER_INFO::strQuery),
            text(&wmi_filter_vertex::mutable_user, &ST_WMIFILTER_INFO::strUser)),
    row<18>(VORN_TRACE_WMI_CONSUMER, &threat_event::mutable_object_wmi_consumer, "mutable_object_wmi_consumer failed!",
            text(&wmi_consumer_vertex::mutable_name, &ST_WMICONSUMER_INFO::strName),
            text(&wmi_consumer_vertex::mutable_dst, &ST_WMICONSUMER_INFO::strObject),
            text(&wmi_consumer_vertex::mutable_type, &ST_WMICONSUMER_INFO::strWmiType),
            text(&wmi_consumer_vertex::mutable_user, &ST_WMICONSUMER_INFO::strUser)),
    row<19>(VORN_TRACE_WMI_BINDING, &threat_event::mutable_object_wmi_binding, "mutable_object_wmi_binding failed!",
            text(&wmi_binding_vertex::mutable_consumer, &ST_WMIBINDING_INFO::strConsumerName),
            text(&wmi_binding_vertex::mutable_filter, &ST_WMIBINDING_INFO::strFilterName),
            text(&wmi_binding_vertex::mutable_user, &ST_WMIBINDING_INFO::strUser)),
    row<20>(VORN_TRACE_ACCOUNT_CREATE, &threat_event::mutable_object_account_create,
            "mutable_object_file_rename failed!",
            text(&account_create_vertex::mutable_user_sid, &ST_ACCOUNT_CREATE::strUserSid),
            text(&account_create_vertex::mutable_user_name, &ST_ACCOUNT_CREATE::strUserName),
            text(&account_create_vertex::mutable_domain_name, &ST_ACCOUNT_CREATE::strDomainName),
            text(&account_create_vertex::mutable_target_user_sid, &ST_ACCOUNT_CREATE::strTargetUserSid),
            text(&account_create_vertex::mutable_target_user_name, &ST_ACCOUNT_CREATE::strTargetUserName),
            text(&account_create_vertex::mutable_target_domain_name, &ST_ACCOUNT_CREATE::strTargetDomainName)),
    row<21>(VORN_TRACE_ACCOUNT_LOGIN, &threat_event::mutable_object_account_logon, "mutable_object_file_rename failed!",
            text(&account_logon_vertex::mutable_user_sid, &ST_ACCOUNT_LOGON::strUserSid),
            text(&account_logon_vertex::mutable_user_name, &ST_ACCOUNT_LOGON::strUserName),
            text(&account_logon_vertex::mutable_domain_name, &ST_ACCOUNT_LOGON::strDomainName),
            text(&account_logon_vertex::mutable_target_user_sid, &ST_ACCOUNT_LOGON::strTargetUserSid),
            text(&account_logon_vertex::mutable_target_user_name, &ST_ACCOUNT_LOGON::strTargetUserName),
            text(&account_logon_vertex::mutable_target_domain_name, &ST_ACCOUNT_LOGON::strTargetDomainName),
            number(&account_logon_vertex::set_target_logon_type, &ST_ACCOUNT_LOGON::uTargetLogonType)),
    row<22>(VORN_TRACE_SERVICE_CREATE, &threat_event::mutable_object_service_create,
            "mutable_object_file_rename failed!",
            text(&service_create_vertex::mutable_cmd, &ST_SVRCREATE_INFO::strServiceCmd),
            text(&service_create_vertex::mutable_name, &ST_SVRCREATE_INFO::strServiceName),
            number(&service_create_vertex::set_start_type, &ST_SVRCREATE_INFO::llServiceStartType)),
    row<23>(VORN_TRACE_SERVICE_DELETE, &threat_event::mutable_object_service_delete,
            "mutable_object_file_rename failed!",
            text(&service_delete_vertex::mutable_name, &ST_SVRDEL_INFO::strServiceName)),
    row<24>(VORN_TRACE_SERVICE_UPDATE, &threat_event::mutable_object_service_update,
            "mutable_object_file_rename failed!",
            text(&service_update_vertex::mutable_cmd, &ST_SVRUPDATE_INFO::strServiceCmd),
            text(&service_update_vertex::mutable_name, &ST_SVRUPDATE_INFO::strServiceName),
            number(&service_update_vertex::set_post_type, &ST_SVRUPDATE_INFO::uStartPost),
            number(&service_update_vertex::set_pre_type, &ST_SVRUPDATE_INFO::uStartPre)),
    row<25>(VORN_TRACE_PORT_LISTEN, &threat_event::mutable_object_port_listen, "mutable_object_port_listen failed!",
            text(&port_listen_vertex::mutable_address, &ST_PORTLISTEN_INFO::strAddress),
            text(&port_listen_vertex::mutable_protocol, &ST_PORTLISTEN_INFO::strProtocol),
            number(&port_listen_vertex::set_port, &ST_PORTLISTEN_INFO::uPort)),
    row<26>(VORN_TRACE_FILE_OPEN, &threat_event::mutable_object_file_open, "mutable_object_file_open failed!",
            text(&file_open_vertex::mutable_file_path, &ST_FILE_OPEN_INFO::strFilePath),
            text(&file_open_vertex::mutable_file_type, &ST_FILE_OPEN_INFO::strFileType)),
    row<27>(VORN_TRACE_SYMBOLS_LINK, &threat_event::mutable_object_symbols_link, "mutable_object_symbols_link failed!",
            text(&symbols_link_vertex::mutable_link_name, &ST_SYMBOL_LINK_INFO::strLinkName),
            text(&symbols_link_vertex::mutable_target_name, &ST_SYMBOL_LINK_INFO::strTarget)),
    row<28>(VORN_TRACE_NAMED_PIPE_CREATE, &threat_event::mutable_object_named_pipe,
            "mutable_object_named_pipe_create failed!",
            text(&named_pipe_vertex::mutable_pipe_name, &ST_NAMED_PIPE_CREATE_INFO::strPipeName)),
    row<29>(VORN_TRACE_NAMED_PIPE_CONNECT, &threat_event::mutable_object_named_pipe,
            "mutable_object_named_pipe_connect failed!",
            text(&named_pipe_vertex::mutable_pipe_name, &ST_NAMED_PIPE_CONNECT_INFO::strPipeName)),
    row<34>(VORN_TRACE_CONT_SOCKET, &threat_event::mutable_object_cont_socket, "mutable_object_cont_socket failed!",
            number(&container_socket_vertex::set_domain, &_ST_SYSCALL_SOCKET::nDomain),
            number(&container_socket_vertex::set_type, &_ST_SYSCALL_SOCKET::nType),
            number(&container_socket_vertex::set_proto, &_ST_SYSCALL_SOCKET::nProto)),
    row<35>(VORN_TRACE_CONT_PTRACE, &threat_event::mutable_object_cont_ptrace, "mutable_object_cont_ptrace failed!",
            unchecked_text(&container_ptrace_vertex::mutable_reserved, &_ST_SYSCALL_PTRACE::strReserved)),
    row<36>(VORN_TRACE_CONT_USERFAULTFD, &threat_event::mutable_object_cont_userfaultfd,
            "mutable_object_cont_userfaultfd failed!",
            unchecked_text(&container_userfaultfd_vertex::mutable_reserved, &_ST_SYSCALL_USERFAULTFD::strReserved)),
    row<37>(VORN_TRACE_CONT_COREPATTREN, &threat_event::mutable_object_cont_pattern,
            "mutable_object_cont_pattern failed!",
            unchecked_text(&container_core_pattern_vertex::mutable_reserved, &_ST_SYSCALL_COREPATTERN::strReserved)),
    row<38>(VORN_TRACE_CONT_SYSCONNECT, &threat_event::mutable_object_cont_sysconnect,
            "mutable_object_cont_sysconnect failed!",
            unchecked_text(&container_sys_connect_vertex::mutable_unix_path, &ST_SYSCALL_SYSCONNECT::strUnixPath),
            number(&container_sys_connect_vertex::set_port, &ST_SYSCALL_SYSCONNECT::uPort),
            number(&container_sys_connect_vertex::set_inode, &ST_SYSCALL_SYSCONNECT::ullInode),
            number(&container_sys_connect_vertex::set_fd_id, &ST_SYSCALL_SYSCONNECT::uFdId)),
    row<39>(VORN_TRACE_FD_INFO, &threat_event::mutable_object_fd_info, "mutable_object_fd_info failed!",
            unchecked_text(&fd_info_vertex::mutable_fd_content, &ST_FD_INFO::strFdContent),
            unchecked_text(&fd_info_vertex::mutable_fd_type, &ST_FD_INFO::strFdType),
            unchecked_text(&fd_info_vertex::mutable_fd_permissions, &ST_FD_INFO::strFdPermissions),
            number(&fd_info_vertex::set_fd_id, &ST_FD_INFO::uFdId),
            number(&fd_info_vertex::set_fd_link_inode, &ST_FD_INFO::ullFdLinkInode)));

// The filler of one row. The event has the record of its type, since the decoder of that type has made it.
template <size_t index>
bool fill_row(ST_RAW_EVENT& stEvent, threat_event* pEvent, int nContainerInitPid) {
    constexpr const auto& row = std::get<index>(kRows);
    auto* const record = stEvent.pPrivate.as<zel::RecordOf<std::remove_cvref_t<decltype(row)>::kType>>();
    ZEL_ASSERT(record);
    return row.fill(*record, pEvent, nContainerInitPid);
}

// The rows by uType, so that an event finds its own in one step; types without a row stay empty. A type that stands
// twice does not compile.
using RowsByType = std::array<zel::ObjectRow, std::tuple_size_v<zel::EventRecords> + 1>;
constexpr RowsByType kByType = []<size_t... index>(std::index_sequence<index...>) {
    RowsByType rows{};
    const auto place = [&rows](const auto& row, zel::ObjectFiller* fill) {
        if (rows.at(row.kType).fill != nullptr) throw "a type stands twice";
        rows[row.kType] = {row.type, fill};
    };
    (place(std::get<index>(kRows), fill_row<index>), ...);
    return rows;
}(std::make_index_sequence<std::tuple_size_v<decltype(kRows)>>());

}  // namespace

const zel::ObjectRow* zel::find_object_row(uint32_t uType) {
    return uType < kByType.size() && kByType[uType].fill != nullptr ? &kByType[uType] : nullptr;
}
