#include "agent.h"

#include <dlfcn.h>

#include "failure.h"

namespace zel {
namespace {

// A leak report names no function of a library that is gone.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kOpenFlags = RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr int kOpenFlags = RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE;
#else
constexpr int kOpenFlags = RTLD_NOW | RTLD_LOCAL;
#endif
#else
constexpr int kOpenFlags = RTLD_NOW | RTLD_LOCAL;
#endif

}  // namespace

Library::Library(const std::filesystem::path& path) : path_(path), handle_(dlopen(path.c_str(), kOpenFlags)) {
    if (handle_ == nullptr) throw Failure("{}; is the agent folder complete?", dlerror());
}

Library::~Library() { dlclose(handle_); }

void* Library::symbol(const char* name) const {
    void* const found = dlsym(handle_, name);
    if (found == nullptr) throw Failure("{} has no function {}; is it of another version?", path_, name);
    return found;
}

Bus::Bus(const AgentFolder& folder) : library(folder.library("liblummb.so")) {
    library.get("lummb_publish", publish);
    library.get("lummb_publish_dns", publish_dns);
    library.get("lummb_subscribe", subscribe);
    library.get("lummb_unsubscribe", unsubscribe);
    library.get("lummb_get_counts", get_counts);
}

lummb_counts Bus::counts() const {
    lummb_counts counts{};
    get_counts(&counts);
    return counts;
}

Plugin::Plugin(const AgentFolder& folder) : library(folder.plugin()) {
    library.get("plugin_init", init);
    library.get("plugin_uninit", uninit);
    library.get("plugin_start", start);
    library.get("plugin_stop", stop);
    library.get("plugin_update", update);
    library.get("plugin_configuration_update", configuration_update);
    library.get("reshdl_file_trace", file_trace);
    library.get("reshdl_process_trace", process_trace);
    library.get("reset_db_begin", reset_db_begin);
    library.get("reset_db_end", reset_db_end);
}

TraceCounts::TraceCounts(const AgentFolder& folder) : library(folder.library("libzelcount.so")) {
    library.get("zeltrc_get_counts", get_counts);
    library.get("zeltrc_forget_alert", forget);
    library.get("zeltrc_set_explainer", set_explainer);
}

zeltrc_counts TraceCounts::counts() const {
    zeltrc_counts counts{};
    get_counts(&counts);
    return counts;
}

ReportManager::ReportManager(const AgentFolder& folder) : library(folder.library("libzelbpmgr.so")) {
    library.get("zelbpmgr_collect", collect);
}

}  // namespace zel
