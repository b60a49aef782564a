// The wrapper of the business-point manager, which collects the reports. The library is optional: without it nothing is
// reported, and all else works. Only plugin_init and plugin_uninit use it, so there is no lock.
#pragma once

#include <source_location>

#include "common/module_path.h"
#include "platform/zel_bp.h"

extern const zel::LibraryRow kBpManager;

class ZelbpmgrApi {
public:
    // Empty at first and made at the first call. It is never destroyed, so no order of static objects matters to a stop
    // at exit.
    static ZelbpmgrApi& Instance();
    ZelbpmgrApi() = default;

    // Opens the library and looks up its one function. A library that is missing is an ERROR line.
    void Init();
    // Closes the library. Both callbacks are unregistered before, for the manager would call into a plug-in that may be
    // gone.
    void Close();
    // Registers a callback for a module; null unregisters it. False when there is no manager. The manager's own answer
    // is not looked at.
    bool Register(const char* module, zel_report_cb_t callback) const;
    bool can_register() const { return m_register_report_cb != nullptr; }
    // The WARN line for a callback that the manager does not get, in the name of the caller.
    static void log_not_registered(std::source_location where = std::source_location::current());

private:
    void* m_hBpMgr = nullptr;
    register_report_cb_t m_register_report_cb = nullptr;
};
