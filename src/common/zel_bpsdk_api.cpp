#include "common/zel_bpsdk_api.h"

#include <dlfcn.h>
#include <jansson.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "common/log.h"
#include "common/module_path.h"
#include "common/never_ends.h"

namespace {

constexpr bool kSanitized = ZEL_ADDRESS_SANITIZER != 0 || ZEL_THREAD_SANITIZER != 0;

// The agent opens these libraries bound to themselves first. The sanitizers end the process on that flag, and they lose
// the names of code that was unloaded.
constexpr int kOpenFlags = kSanitized ? RTLD_NOW | RTLD_NODELETE : RTLD_NOW | RTLD_DEEPBIND;
static_assert((RTLD_NOW | RTLD_DEEPBIND) == 10);

// At most size-1 characters; the rest of `out` is zero already.
template <size_t N>
void put(char (&out)[N], std::string_view text) {
    memcpy(out, text.data(), text.size() < N ? text.size() : N - 1);
}

using Binding = ZelBpSdkApi::Binding;

template <auto Member>
void find(Binding& binding, const char* name) {
    zel::reporting_symbol(binding.m_hBpSdk, name, binding.*Member);
}

// In the order in which they are looked up.
constexpr struct {
    const char* name;
    void (*find)(Binding& binding, const char* name);
} kSdkFunctions[] = {
    {"zel_bp_trace", find<&Binding::m_zel_bp_trace>},
    {"zel_bp_trace_unicode", find<&Binding::m_zel_bp_trace_unicode>},
    {"zel_bp_trace_utf8", find<&Binding::m_zel_bp_trace_utf8>},
    {"zel_bp_other", find<&Binding::m_zel_bp_other>},
    {"zel_bp_init", find<&Binding::m_zel_bp_init>},
    {"zel_bp_uninit", find<&Binding::m_zel_bp_uninit>},
};
constexpr auto kSdkNames = zel::names_of(kSdkFunctions);
constexpr const char* kGetHostId = "oda_get_hostid";

}  // namespace

constinit const zel::LibraryRow kBpSdk{"@/../../lib/libzel_bpsdk.so", kSdkNames, zel::kReportingPathSize};
constinit const zel::LibraryRow kOdaIpc{"@/../lib/libodaipc.so", {&kGetHostId, 1}, zel::kReportingPathSize};

int32_t zel::open_reporting_library(const char* path, void** handle) {
    if (path == nullptr || path[0] == '\0' || handle == nullptr) return -1;
    *handle = dlopen(path, kOpenFlags);
    return *handle != nullptr ? 0 : static_cast<int32_t>(0x84ce0015);
}

void* zel::reporting_address(void* handle, const char* name) { return dlsym(handle, name); }

ZelBpSdkApi& ZelBpSdkApi::Instance() {
    static constinit zel::MadeOnce<ZelBpSdkApi> api;
    return api.get();
}

void ZelBpSdkApi::Init() {
    Binding binding;
    binding.open_sdk();
    binding.start_sdk();
    binding.open_ipc();
    binding.read_version();
    binding.read_agent_id();
    const zel::Lock lock(mutex_);
    binding_ = binding;
}

void ZelBpSdkApi::Binding::open_sdk() {
    const int32_t result = zel::open_reporting_library(kBpSdk.where().c_str(), &m_hBpSdk);
    if (result != 0) {
        LOG_ERROR("dll open zel_bpsdk failed, errcode:0x%08x", static_cast<uint32_t>(result));
        return;
    }
    LOG_INFO("dll open zel_bpsdk success");
    for (const auto& function : kSdkFunctions) function.find(*this, function.name);
}

void ZelBpSdkApi::Binding::start_sdk() const {
    if (m_zel_bp_init == nullptr) return;
    const int32_t started = m_zel_bp_init();
    if (started != 0)
        LOG_ERROR("init zel_bpsdk failed, errcode:0x%08x", static_cast<uint32_t>(started));
    else
        LOG_INFO("init zel_bpsdk success");
}

void ZelBpSdkApi::Binding::open_ipc() {
    if (zel::open_reporting_library(kOdaIpc.where().c_str(), &m_hIpc) == 0)
        zel::reporting_symbol(m_hIpc, kGetHostId, m_oda_get_hostid);
}

bool ZelBpSdkApi::Binding::read_version() {
    // JSON_DECODE_ANY. A file without a version leaves the built-in one.
    constexpr size_t kDecodeAny = 4;
    const std::unique_ptr<json_t, decltype(&json_decref)> root(
        json_load_file(zel::module_path(kAgentConfig, zel::kReportingPathSize).c_str(), kDecodeAny, nullptr),
        &json_decref);
    const char* components = json_string_value(json_object_get(json_object_get(root.get(), "version"), "components"));
    if (components == nullptr) return false;
    memset(szVersion, 0, sizeof szVersion);
    put(szVersion, components);
    return true;
}

void ZelBpSdkApi::Binding::read_agent_id() {
    const char* id = getenv("agentid");
    if (id == nullptr) {
        LOG_ERROR("get agentid from env error !");
        return;
    }
    memset(szAgentId, 0, sizeof szAgentId);
    memcpy(szAgentId, id, strnlen(id, sizeof szAgentId));
    LOG_DEBUG("get agentid %s", id);
}

void ZelBpSdkApi::report_busy(size_t events, size_t traces, size_t delayed) const {
    Binding binding;
    {
        const zel::Lock lock(mutex_);
        binding = binding_;
    }
    if (binding.m_zel_bp_trace_utf8 == nullptr) return;
    ST_BP_TRACE_HEAD head{};
    put(head.szModule, "zelreshdl");
    put(head.szFunction, "PushQueue");
    put(head.szProduct, "EDR");
    put(head.szVersion, binding.szVersion);
    // The head has room for 15 characters of the id.
    put(head.szAgentId, std::string_view(binding.szAgentId, strnlen(binding.szAgentId, sizeof binding.szAgentId)));
    binding.m_zel_bp_trace_utf8(
        &head, "[info] The queue reached the busy threshold. Event queue:%zu, trc queue:%zu, delay queue:%zu", events,
        traces, delayed);
}
