#include "host/lib/chain_kinds.h"

#include <cstddef>

namespace zelhost {
namespace {

using F = Family;

// The name is what tells one vertex from the next; the lines below it are what an analyst asks first.
// A test holds the rows against the schema, so that no list is missing.
constexpr ChainKind kKinds[] = {
    {"process_list", F::process, "process", "processes", "{/process_path}", "pid {process_id}, {process_user}",
     "{process_commandline}"},
    {"remotethread_list", F::thread, "remote thread", "remote threads", "thread {thread_id} in pid {process_id}",
     "{process_path}", "{module_name} {function_name}"},
    {"reg_create_list", F::registry, "registry key", "registry keys", "{reg_key}"},
    {"reg_delete_list", F::registry, "registry key", "registry keys", "{reg_key}"},
    {"reg_set_list", F::registry, "registry value", "registry values", "{reg_key}", "{reg_name} = {reg_value}"},
    {"dns_query_list", F::dns, "DNS query", "DNS names", "{dns_name}", "{dns_results}"},
    {"file_create_list", F::file, "file", "files", "{file_path}", "{file_type} {link_target}"},
    {"file_delete_list", F::file, "file", "files", "{file_path}"},
    {"file_rename_list", F::file, "file", "files", "{file_post_path}", "was {file_pre_path}"},
    {"file_modify_list", F::file, "file", "files", "{file_path}", "{file_type} {file_permissions}"},
    {"file_modify_time_list", F::file, "file", "files", "{file_path}", "{file_pre_time} to {file_post_time}"},
    {"net_connect_list", F::network, "connection", "connections", "{net_dst_ip}:{net_dst_port}",
     "{net_proto} from {net_src_ip}:{net_src_port}"},
    {"schtasks_list", F::task, "scheduled task", "scheduled tasks", "{task_name}", "{task_user} {task_frequency}",
     "{task_path}"},
    {"imgload_list", F::module, "module", "modules", "{file_path}"},
    {"driver_load_list", F::module, "driver", "drivers", "{file_path}"},
    {"process_exit_list", F::process, "exit", "exits", "exit of pid {process_pid}", "code {process_exit_code}"},
    {"wmi_binding_list", F::wmi, "WMI binding", "WMI bindings", "{consumer}", "{filter}", "{user}"},
    {"wmi_consumer_list", F::wmi, "WMI consumer", "WMI consumers", "{name}", "{type} {dst}", "{user}"},
    {"wmi_filter_list", F::wmi, "WMI filter", "WMI filters", "{name}", "{query}", "{user}"},
    {"account_create_list", F::account, "account", "accounts", "{target_user_name}", "{target_domain_name}",
     "by {user_name}"},
    {"account_logon_list", F::account, "logon", "logons", "{target_user_name}", "from {ip}:{port}", "by {user_name}"},
    {"service_create_list", F::service, "service", "services", "{name}", "{cmd}"},
    {"service_update_list", F::service, "service", "services", "{name}", "{cmd}"},
    {"service_delete_list", F::service, "service", "services", "{name}"},
    {"port_listen_list", F::network, "listening port", "listening ports", "{address}:{port}", "{protocol}"},
    {"file_open_list", F::file, "file", "files", "{file_path}", "{file_type}"},
    {"symbols_link_list", F::file, "symbolic link", "symbolic links", "{link_name}", "to {target_name}"},
    {"api_invoke_list", F::thread, "API call", "API calls", "{api_matrix}"},
    {"named_pipe_list", F::pipe, "named pipe", "named pipes", "{pipe_name}"},
    {"container_socket_list", F::container, "container socket", "container sockets", "socket {domain}/{type}/{proto}"},
    {"container_ptrace_list", F::container, "ptrace in a container", "ptraces in containers", "ptrace {reserved}"},
    {"container_userfaultfd_list", F::container, "userfaultfd in a container", "userfaultfds in containers",
     "userfaultfd {reserved}"},
    {"container_core_pattern_list", F::container, "core pattern", "core patterns", "core pattern {reserved}"},
    {"container_core_sysconnect_list", F::container, "connection of a container", "connections of containers",
     "{unix_path}", "port {port}, inode {inode}"},
    {"fd_info_list", F::pipe, "open descriptor", "open descriptors", "{fd_content}",
     "fd {fd_id} {fd_type} {fd_permissions}"},
};

// By the number of the type.
// The schema numbers the types without gaps.
constexpr std::string_view kEdgeWords[] = {
    "acts on",
    "starts",
    "asks for",
    "connects to",
    "loads",
    "creates",
    "deletes",
    "renames",
    "modifies",
    "sets the time of",
    "starts a thread in",
    "creates",
    "deletes",
    "sets",
    "schedules",
    "exits",
    "loads the driver",
    "binds",
    "adds the consumer",
    "adds the filter",
    "creates",
    "updates",
    "deletes",
    "hot-patches",
    "creates",
    "logs in",
    "listens on",
    "has in memory",
    "is stopped at",
    "opens",
    "links",
    "injects into",
    "calls",
    "creates the pipe",
    "connects to the pipe",
    "correlates with",
    "opens a socket",
    "traces",
    "uses",
    "sets",
    "connects to",
    "holds",
};

}  // namespace

const ChainKind kUnknownVertex = {"", Family::unknown, "vertex that is not in the chain", "unknown vertices", ""};
const ChainKind kMoreVertices = {"", Family::rest, "more vertices", "more", ""};

std::span<const ChainKind> chain_kinds() { return kKinds; }

std::string_view edge_word(int type) {
    const auto at = static_cast<size_t>(type);
    // A newer schema may know more types than this program.
    return at < std::size(kEdgeWords) ? kEdgeWords[at] : kEdgeWords[0];
}

}  // namespace zelhost
