// The wrapper of the business-point SDK, to which single reports go with the agent's version and id. Its libraries are
// optional and are never closed, because a report may run at any time.
#pragma once

#include <cstddef>

#include "common/module_path.h"
#include "common/mutex.h"
#include "platform/zel_bp.h"

namespace zel {

inline constexpr uint32_t kReportingPathSize = 4096;

// dlopen with the agent's flags. The answer is 0, -1 for an empty path, or 0x84ce0015 when the library cannot be
// opened.
int32_t open_reporting_library(const char* path, void** handle);

void* reporting_address(void* handle, const char* name);

// `function` is null when there is no such symbol.
template <class F>
void reporting_symbol(void* handle, const char* name, F*& function) {
    function = reinterpret_cast<F*>(reporting_address(handle, name));
}

}  // namespace zel

extern const zel::LibraryRow kBpSdk;
extern const zel::LibraryRow kOdaIpc;
// The agent's version stands here.
inline constexpr const char* kAgentConfig = "@/../../config/agent_cfg.json";

class ZelBpSdkApi {
    using Unused = int32_t();  // looked up as the agent expects; nothing calls them

public:
    // Empty at first and made at the first call. It is never destroyed, because the bus thread may report through it at
    // any time.
    static ZelBpSdkApi& Instance();
    ZelBpSdkApi() = default;

    // Loads the libraries and reads version and agent id. Runs on the starting thread. A missing SDK is an ERROR line,
    // a missing libodaipc.so is silent, and neither stops the start. A second start may come while events arrive, so
    // all is found first and put in force in one step.
    void Init();

    // Reports that the delay queue is more than half full. Does nothing without the SDK. Any thread.
    void report_busy(size_t events, size_t traces, size_t delayed) const;

    // All that Init finds. A report copies it, so that no lock is held during the call into the SDK. Init takes these
    // steps in this order; whoever only looks at an agent leaves start_sdk out.
    struct Binding {
        void open_sdk();
        void start_sdk() const;
        void open_ipc();
        bool read_version();   // false: the built-in one stays
        void read_agent_id();  // of the environment

        void* m_hBpSdk = nullptr;
        void* m_hIpc = nullptr;
        Unused* m_zel_bp_trace = nullptr;
        Unused* m_zel_bp_trace_unicode = nullptr;
        zel_bp_trace_utf8_t m_zel_bp_trace_utf8 = nullptr;
        Unused* m_oda_get_hostid = nullptr;
        Unused* m_zel_bp_other = nullptr;
        zel_bp_init_t m_zel_bp_init = nullptr;
        Unused* m_zel_bp_uninit = nullptr;
        char szVersion[16] = "3.7.2.20";
        char szAgentId[32] = "0000000000";  // no terminator when the id has 32 bytes or more
    };

private:
    mutable zel::PlainMutex mutex_;
    Binding binding_ GUARDED_BY(mutex_);
};
