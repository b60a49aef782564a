// The libraries of an agent folder that a host talks to: the bus, the plug-in with its ten exports, and what the
// stand-ins tell about themselves.
#pragma once

#include <filesystem>
#include <string>

#include "lummb/lummb_host.h"
#include "zelbpmgr/zelbpmgr_host.h"
#include "zeltrc/zeltrc_host.h"

namespace zel {

class Library {
public:
    Library(const std::filesystem::path& path);  // throws Failure; the records below are made from a path
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    void* symbol(const char* name) const;  // throws Failure when there is none

private:
    std::string path_;
    void* handle_;
};

// A function of a library, found when it is made.
template <class Type>
class Function {
public:
    Function(const Library& library, const char* name) : function_(reinterpret_cast<Type*>(library.symbol(name))) {}
    template <class... Arguments>
    auto operator()(Arguments... arguments) const {
        return function_(arguments...);
    }

private:
    Type* function_;
};

// The bus that the plug-in will load: the same file, so the same instance.
struct Bus {
    lummb_counts counts() const;

    Library library;
    Function<int32_t(uint32_t event_id, const char* data, uint64_t size)> publish{library, "lummb_publish"};
    Function<int32_t(const ST_DNS_NATIVE* record, const char* query_name)> publish_dns{library, "lummb_publish_dns"};
    Function<uint64_t(uint32_t event_id, lummb_sink_t, void* context)> subscribe{library, "lummb_subscribe"};
    Function<void(uint64_t token)> unsubscribe{library, "lummb_unsubscribe"};
    Function<void(lummb_counts*)> get_counts{library, "lummb_get_counts"};
};

// Result callback of the on-demand traces.
using ResultCallback = int (*)(int code, uint32_t context, const char* buffer, uint32_t size);

struct Plugin {
    Library library;
    Function<int()> init{library, "plugin_init"};
    Function<int()> uninit{library, "plugin_uninit"};
    Function<int()> start{library, "plugin_start"};
    Function<int()> stop{library, "plugin_stop"};
    Function<int(const char* data, uint32_t size)> configuration_update{library, "plugin_configuration_update"};
    Function<int(ResultCallback, const char* path, const char* file_key, int kind, uint32_t context)> file_trace{
        library, "reshdl_file_trace"};
    Function<int(ResultCallback, const char* data, uint32_t size, uint32_t context)> process_trace{
        library, "reshdl_process_trace"};
    Function<void()> reset_db_begin{library, "reset_db_begin"};
    Function<void()> reset_db_end{library, "reset_db_end"};
};

// The counts of the trace module's stand-in.
struct TraceCounts {
    zeltrc_counts counts() const;

    Library library;
    Function<void(zeltrc_counts*)> get_counts{library, "zeltrc_get_counts"};
    Function<void(zeltrc_explain_t, void* context)> set_explainer{library, "zeltrc_set_explainer"};
};

// The manager's stand-in, which collects reports.
struct ReportManager {
    Library library;
    Function<uint32_t(int32_t thread, uint32_t buffer_size, zelbpmgr_report_t, void* context)> collect{
        library, "zelbpmgr_collect"};
};

}  // namespace zel
