#include "plugin/zelbpmgr_api.h"

#include <dlfcn.h>

#include <string>
#include <utility>

#include "common/log.h"
#include "common/module_path.h"
#include "common/never_ends.h"
#include "common/zel_bpsdk_api.h"

namespace {

constexpr const char* kRegister = "register_report_cb";

}  // namespace

constinit const zel::LibraryRow kBpManager{"@/../lib/libzelbpmgr.so", {&kRegister, 1}, zel::kReportingPathSize};

ZelbpmgrApi& ZelbpmgrApi::Instance() {
    static constinit zel::MadeOnce<ZelbpmgrApi> api;
    return api.get();
}

void ZelbpmgrApi::Init() {
    LOG_INFO("ZelbpmgrApi init.");
    const std::string path = kBpManager.where();
    // A failed start leaves the library open, since its call-backs stay registered. That opening ends after the new
    // one, so that the library is never unloaded in between.
    void* const former = std::exchange(m_hBpMgr, nullptr);
    m_register_report_cb = nullptr;
    const int32_t result = zel::open_reporting_library(path.c_str(), &m_hBpMgr);
    if (former != nullptr) dlclose(former);
    if (result != 0) {
        LOG_ERROR("dll open zel_bpmgr failed, errcode:0x%08x", static_cast<uint32_t>(result));
    } else {
        LOG_INFO("dll open zel_bpmgr success");
        zel::reporting_symbol(m_hBpMgr, kRegister, m_register_report_cb);
    }
    if (m_register_report_cb == nullptr) LOG_ERROR("ZelbpmgrApi init failed, m_register_report_cb get error.");
    // Also after the two failures above. Operators know it so.
    LOG_INFO("ZelbpmgrApi init successful.");
}

void ZelbpmgrApi::Close() {
    m_register_report_cb = nullptr;
    if (m_hBpMgr != nullptr) dlclose(m_hBpMgr);
    m_hBpMgr = nullptr;
}

// A null callback takes the registration back.
bool ZelbpmgrApi::Register(const char* module, zel_report_cb_t callback) const {
    if (m_register_report_cb == nullptr) return false;
    m_register_report_cb(module, callback);
    return true;
}

// The text never showed the name; operators know it so.
void ZelbpmgrApi::log_not_registered(std::source_location where) {
    LOG_WARN_AT(where, "[ZEL_BPMGR_REGISTER] module_name: %% error.");
}
