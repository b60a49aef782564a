#include "standin/zeltrc/chain.h"

#include <algorithm>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>

#include "standin/zeltrc/device.h"

namespace {

using namespace vorn_retrace;

// How the object field of an event becomes a vertex in the list of its kind. A created process is no row: it may be a
// vertex already.
struct ObjectField {
    bool (*is_set)(const threat_event& event);
    void (*add)(const threat_event& event, uint64_t node_id, vorn_trace_event& chain);
};

template <auto Has, auto Get, auto Add>
constexpr ObjectField kField = {
    [](const threat_event& event) { return (event.*Has)(); },
    [](const threat_event& event, uint64_t node_id, vorn_trace_event& chain) {
        auto* vertex = (chain.*Add)();
        *vertex = (event.*Get)();
        vertex->set_node_id(node_id);
    },
};

#define OBJECT_FIELD(object, list) \
    kField<&threat_event::has_##object, &threat_event::object, &vorn_trace_event::add_##list>

constexpr ObjectField kObjectFields[] = {
    OBJECT_FIELD(object_exit, process_exit_list),
    OBJECT_FIELD(object_remote_thread, remotethread_list),
    OBJECT_FIELD(object_image_load, imgload_list),
    OBJECT_FIELD(object_image_driver, driver_load_list),
    OBJECT_FIELD(object_file_create, file_create_list),
    OBJECT_FIELD(object_file_delete, file_delete_list),
    OBJECT_FIELD(object_file_rename, file_rename_list),
    OBJECT_FIELD(object_file_modify, file_modify_list),
    OBJECT_FIELD(object_file_modify_time, file_modify_time_list),
    OBJECT_FIELD(object_reg_create, reg_create_list),
    OBJECT_FIELD(object_reg_delete, reg_delete_list),
    OBJECT_FIELD(object_reg_set, reg_set_list),
    OBJECT_FIELD(object_net_connect, net_connect_list),
    OBJECT_FIELD(object_dns_query, dns_query_list),
    OBJECT_FIELD(object_taskcreate, schtasks_list),
    OBJECT_FIELD(object_wmi_binding, wmi_binding_list),
    OBJECT_FIELD(object_wmi_consumer, wmi_consumer_list),
    OBJECT_FIELD(object_wmi_filter, wmi_filter_list),
    OBJECT_FIELD(object_account_create, account_create_list),
    OBJECT_FIELD(object_account_logon, account_logon_list),
    OBJECT_FIELD(object_service_create, service_create_list),
    OBJECT_FIELD(object_service_update, service_update_list),
    OBJECT_FIELD(object_service_delete, service_delete_list),
    OBJECT_FIELD(object_port_listen, port_listen_list),
    OBJECT_FIELD(object_file_open, file_open_list),
    OBJECT_FIELD(object_symbols_link, symbols_link_list),
    OBJECT_FIELD(object_named_pipe, named_pipe_list),
    OBJECT_FIELD(object_cont_socket, container_socket_list),
    OBJECT_FIELD(object_cont_ptrace, container_ptrace_list),
    OBJECT_FIELD(object_cont_userfaultfd, container_userfaultfd_list),
    OBJECT_FIELD(object_cont_pattern, container_core_pattern_list),
    OBJECT_FIELD(object_cont_sysconnect, container_core_sysconnect_list),
    OBJECT_FIELD(object_fd_info, fd_info_list),
};

#undef OBJECT_FIELD

class ChainBuilder {
public:
    explicit ChainBuilder(vorn_trace_event& chain) : chain_(chain) {}

    void add_event(const threat_event& event, const std::string& alert_guid, const std::string& rule_id) {
        const uint64_t subject = event.has_subject_process() ? process_node(event.subject_process()) : 0;
        const uint64_t object = object_node(event);
        if (object == 0) return;
        behavior_edge& edge = *chain_.add_edge_list();
        edge.set_edge_id(static_cast<uint64_t>(chain_.edge_list_size()));
        edge.set_table_index_begin(subject);
        edge.set_table_index_end(object);
        edge.set_type(event.type());
        edge.set_time(event.op_time());
        edge.set_threat_guid(alert_guid);
        edge.set_rule_id(rule_id);
    }

private:
    // The vertex of a process that is met again keeps what it has, and takes over what it lacks.
    uint64_t process_node(const process_vertex& process) {
        process_vertex* vertex = find(process);
        if (vertex == nullptr) {
            vertex = chain_.add_process_list();
            *vertex = process;
            vertex->set_node_id(++last_node_);
        } else {
            process_vertex known;
            known.Swap(vertex);
            *vertex = process;
            vertex->clear_highlight();
            vertex->MergeFrom(known);
        }
        if (!vertex->process_guid().empty()) by_guid_.emplace(vertex->process_guid(), vertex);
        by_start_.emplace(start_of(*vertex), vertex);
        return vertex->node_id();
    }

    // By its GUID; without one on either side, by process id and creation time.
    process_vertex* find(const process_vertex& process) const {
        if (const auto at = by_guid_.find(process.process_guid()); at != by_guid_.end()) return at->second;
        const auto at = by_start_.find(start_of(process));
        if (at == by_start_.end()) return nullptr;
        const bool both_named = !process.process_guid().empty() && !at->second->process_guid().empty();
        return both_named ? nullptr : at->second;
    }

    // 0 when the event has no object.
    uint64_t object_node(const threat_event& event) {
        if (event.has_object_processcreate()) return process_node(event.object_processcreate());
        const auto field =
            std::ranges::find_if(kObjectFields, [&](const ObjectField& row) { return row.is_set(event); });
        if (field == std::end(kObjectFields)) return 0;
        field->add(event, ++last_node_, chain_);
        return last_node_;
    }

    static std::pair<uint64_t, int64_t> start_of(const process_vertex& process) {
        return {process.process_id(), process.process_createtime()};
    }

    vorn_trace_event& chain_;
    uint64_t last_node_ = 0;
    // Vertices stay where they are while their list grows.
    std::unordered_map<std::string, process_vertex*> by_guid_;
    std::map<std::pair<uint64_t, int64_t>, process_vertex*> by_start_;
};

// A time of 0 is a time that nobody set.
void widen(vorn_trace_info& message, int64_t time) {
    if (time == 0) return;
    if (message.trace_start() == 0 || time < message.trace_start()) message.set_trace_start(time);
    if (message.trace_end() == 0 || time > message.trace_end()) message.set_trace_end(time);
}

}  // namespace

void build_chain(vorn_trace_info& message) {
    message.clear_trace_start();
    message.clear_trace_end();
    vorn_trace_event& chain = *message.mutable_trace_event();
    chain.Clear();
    ChainBuilder builder(chain);
    for (const threat_rule& rule : message.threat().alert_rule()) {
        for (const threat_event& event : rule.alert_event()) {
            builder.add_event(event, message.threat().alert_guid(), rule.rule_id());
            widen(message, event.op_time());
        }
    }
    *chain.mutable_device_data() = describe_host();
}
