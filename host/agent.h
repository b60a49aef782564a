// The libraries of an agent folder that a host talks to: the bus, the plug-in with its ten exports, and what the stand-ins
// tell about themselves.
#pragma once

#include <optional>
#include <string>

#include "agent_folder.h"
#include "lummb/lummb_host.h"
#include "zelbpmgr/zelbpmgr_host.h"
#include "zeltrc/zeltrc_host.h"

namespace zel {

class Library {
public:
    explicit Library(const std::filesystem::path& path);  // throws Failure
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // Throws Failure when there is no such function.
    template <class Function>
    void get(const char* name, Function& out) const {
        out = reinterpret_cast<Function>(symbol(name));
    }

private:
    void* symbol(const char* name) const;

    std::string path_;
    void* handle_;
};

// The bus that the plug-in will load: the same file, so the same instance.
struct Bus {
    explicit Bus(const AgentFolder& folder);

    lummb_counts counts() const;

    Library library;
    lummb_publish_t publish;
    lummb_publish_dns_t publish_dns;
    lummb_subscribe_t subscribe;
    lummb_unsubscribe_t unsubscribe;
    lummb_get_counts_t get_counts;
};

// Result callback of the on-demand traces.
using ResultCallback = int (*)(int code, uint32_t context, const char* buffer, uint32_t size);

struct Plugin {
    explicit Plugin(const AgentFolder& folder);

    Library library;
    int (*init)();
    int (*uninit)();
    int (*start)();
    int (*stop)();
    int (*update)();
    int (*configuration_update)(const char* data, uint32_t size);
    int (*file_trace)(ResultCallback callback, const char* path, const char* file_key, int kind, uint32_t context);
    int (*process_trace)(ResultCallback callback, const char* data, uint32_t size, uint32_t context);
    void (*reset_db_begin)();
    void (*reset_db_end)();
};

// The counts of the trace module's stand-in.
struct TraceCounts {
    explicit TraceCounts(const AgentFolder& folder);

    zeltrc_counts counts() const;

    Library library;
    zeltrc_get_counts_t get_counts;
    zeltrc_forget_alert_t forget;
    zeltrc_set_explainer_t set_explainer;
};

// The manager's stand-in, which collects reports.
struct ReportManager {
    explicit ReportManager(const AgentFolder& folder);

    Library library;
    zelbpmgr_collect_t collect;
};

}  // namespace zel
