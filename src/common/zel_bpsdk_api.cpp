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

}  // namespace

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
    binding.load_sdk();
    binding.load_ipc();
    binding.read_version();
    binding.read_agent_id();
    const zel::Lock lock(mutex_);
    binding_ = binding;
}

void ZelBpSdkApi::Binding::load_sdk() {
    const int32_t result = zel::open_reporting_library(
        zel::module_path("@/../../lib/libzel_bpsdk.so", zel::kReportingPathSize).c_str(), &m_hBpSdk);
    if (result != 0) {
        LOG_ERROR("dll open zel_bpsdk failed, errcode:0x%08x", static_cast<uint32_t>(result));
        return;
    }
    LOG_INFO("dll open zel_bpsdk success");
    zel::reporting_symbol(m_hBpSdk, "zel_bp_trace", m_zel_bp_trace);
    zel::reporting_symbol(m_hBpSdk, "zel_bp_trace_unicode", m_zel_bp_trace_unicode);
    zel::reporting_symbol(m_hBpSdk, "zel_bp_trace_utf8", m_zel_bp_trace_utf8);
    zel::reporting_symbol(m_hBpSdk, "zel_bp_other", m_zel_bp_other);
    zel::reporting_symbol(m_hBpSdk, "zel_bp_init", m_zel_bp_init);
    zel::reporting_symbol(m_hBpSdk, "zel_bp_uninit", m_zel_bp_uninit);
    if (m_zel_bp_init == nullptr) return;
    const int32_t started = m_zel_bp_init();
    if (started != 0)
        LOG_ERROR("init zel_bpsdk failed, errcode:0x%08x", static_cast<uint32_t>(started));
    else
        LOG_INFO("init zel_bpsdk success");
}

void ZelBpSdkApi::Binding::load_ipc() {
    if (zel::open_reporting_library(zel::module_path("@/../lib/libodaipc.so", zel::kReportingPathSize).c_str(),
                                    &m_hIpc) == 0)
        zel::reporting_symbol(m_hIpc, "oda_get_hostid", m_oda_get_hostid);
}

void ZelBpSdkApi::Binding::read_version() {
    // JSON_DECODE_ANY. A file without a version leaves the built-in one.
    constexpr size_t kDecodeAny = 4;
    const std::unique_ptr<json_t, decltype(&json_decref)> root(
        json_load_file(zel::module_path("@/../../config/agent_cfg.json", zel::kReportingPathSize).c_str(), kDecodeAny,
                       nullptr),
        &json_decref);
    const char* components = json_string_value(json_object_get(json_object_get(root.get(), "version"), "components"));
    if (components == nullptr) return;
    memset(szVersion, 0, sizeof szVersion);
    put(szVersion, components);
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
