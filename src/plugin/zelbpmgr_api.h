// The wrapper of the business-point manager, which collects the reports. The library is optional.
#pragma once

#include "platform/zel_bp.h"

class ZelbpmgrApi {
public:
    // An empty object, made at the first call. It never ends, so that no order of static objects matters to a stop at
    // exit.
    static ZelbpmgrApi& Instance();
    ZelbpmgrApi() = default;

    void Init();
    // Closes the library.
    void Close();
    // Null unregisters. False when there is no manager.
    bool Register(const char* module, zel_report_cb_t callback) const;

private:
    void* m_hBpMgr = nullptr;
    register_report_cb_t m_register_report_cb = nullptr;
};
