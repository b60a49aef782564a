// The libraries of an agent folder that a host talks to. A record stands for one library: it opens the library when it
// is made, closes it when it ends, and has a member for each function that the host calls.
//
// The bus, the plug-in and the support library are needed. What a stand-in offers a host beyond the agent's own library
// is optional: where the agent's own library stands in its place, such a function is empty.
#pragma once

#include <dlfcn.h>

#include <filesystem>
#include <optional>
#include <string>

#include "platform/zelreshdl.h"
#include "standin/lummb/lummb_host.h"
#include "standin/lumutil/log_tap.h"
#include "standin/zelbpmgr/zelbpmgr_host.h"
#include "standin/zeltrc/zeltrc_host.h"

namespace zelhost {

// An open library. Owns the handle.
class Library {
public:
    // `visibility` RTLD_GLOBAL lets libraries that are opened later find the names of this one. Throws Failure. Not
    // explicit, so that the records below can be made from a path.
    Library(const std::filesystem::path& path, int visibility = RTLD_LOCAL);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // Null when there is none.
    void* symbol(const char* name) const { return dlsym(handle_, name); }
    // The handle is valid as long as the object.
    void* handle() const { return handle_; }
    const std::string& path() const { return path_; }
    // From now on the library stays in the process for good, since something may still call into it.
    void keep() { handle_ = nullptr; }

private:
    std::string path_;
    void* handle_;
};

// Whether a library is open in this process, whoever opened it.
bool is_loaded(const std::filesystem::path& path);

// A required function is missed when the record is made, and not in the middle of a run.
enum class Need { required, optional };

// Null when an optional function is missing. Throws Failure when a required one is.
void* find_function(const Library& library, const char* name, Need need);

// A function of a library, looked up when the object is made. `Pointer` is a pointer to a function.
// Holds an address within the library, which must stay open as long as it is called.
template <class Pointer>
class Function {
public:
    Function(const Library& library, const char* name, Need need = Need::required)
        : function_(reinterpret_cast<Pointer>(find_function(library, name, need))) {}

    // True when the function is there. An optional one is asked before each call.
    explicit operator bool() const { return function_ != nullptr; }
    template <class... Arguments>
    auto operator()(Arguments... arguments) const {
        return function_(arguments...);
    }

private:
    Pointer function_;
};

// The support functions. They are global, so that the plug-in and the other libraries bind to this very file.
// The tap shows each log line to the host, on the thread that logs.
struct Support {
    Library library;
    Function<decltype(&zel_log_set_tap)> set_log_tap{library, "zel_log_set_tap", Need::optional};
};

// Tells which support library a session uses, for as long as this lives: who stands before its functions has to find
// them.
// The record is borrowed. There is one object of this kind at a time.
class SupportInUse {
public:
    explicit SupportInUse(const Support& support);
    ~SupportInUse();
    SupportInUse(const SupportInUse&) = delete;
    SupportInUse& operator=(const SupportInUse&) = delete;
};
// Its handle; null without one. Any thread.
void* support_library();

// The bus. The plug-in opens the same file, so both talk to one instance.
struct Bus {
    lummb_counts counts() const;

    Library library;
    Function<lummb_publish_t> publish{library, "lummb_publish"};
    Function<lummb_publish_dns_t> publish_dns{library, "lummb_publish_dns"};
    Function<lummb_subscribe_t> subscribe{library, "lummb_subscribe"};
    Function<lummb_unsubscribe_t> unsubscribe{library, "lummb_unsubscribe"};
    Function<lummb_set_order_t> set_order{library, "lummb_set_order"};
    Function<lummb_get_counts_t> get_counts{library, "lummb_get_counts"};
};

// The plug-in with its ten exports.
struct Plugin {
    Library library;
    Function<decltype(&plugin_init)> init{library, "plugin_init"};
    Function<decltype(&plugin_uninit)> uninit{library, "plugin_uninit"};
    Function<decltype(&plugin_start)> start{library, "plugin_start"};
    Function<decltype(&plugin_stop)> stop{library, "plugin_stop"};
    Function<decltype(&plugin_update)> update{library, "plugin_update"};
    Function<decltype(&plugin_configuration_update)> configuration_update{library, "plugin_configuration_update"};
    Function<decltype(&reshdl_file_trace)> file_trace{library, "reshdl_file_trace"};
    Function<decltype(&reshdl_process_trace)> process_trace{library, "reshdl_process_trace"};
    Function<decltype(&reset_db_begin)> begin_reset{library, "reset_db_begin"};
    Function<decltype(&reset_db_end)> end_reset{library, "reset_db_end"};
};

// What the trace module's stand-in counts. The module itself is loaded and unloaded by the plug-in.
// The host opens the library once more to ask it. The plug-in's own handle is not touched.
struct TraceModule {
    Library library;
    Function<zeltrc_get_counts_t> get_counts{library, "zeltrc_get_counts", Need::optional};
    Function<zeltrc_set_explainer_t> set_explainer{library, "zeltrc_set_explainer", Need::optional};
};

// The manager, which holds the plug-in's report callback.
struct ReportManager {
    Library library;
    Function<zelbpmgr_collect_t> collect{library, "zelbpmgr_collect", Need::optional};
};

}  // namespace zelhost
