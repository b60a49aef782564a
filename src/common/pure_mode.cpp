#include "common/pure_mode.h"

#include <cstdlib>

#include "common/module_path.h"
#include "platform/zel_support.h"

bool zel::PureMode::enabled() {
    if (answer_ == -1) answer_ = CheckAdvthreatsEnable("advthreats_module") != 0 ? 0 : 1;
    return answer_ == 1;
}

int CheckAdvthreatsEnable(const char* pszSection) {
    void* ini = nullptr;
    if (zel_ini_file_load(zel::module_path("@/../../config/zel_pure_mode.ini").c_str(), &ini) != 0) return 1;
    const char* text = zel_ini_file_get(ini, pszSection, "enable");
    const int enable = text != nullptr && strtoul(text, nullptr, 10) != 0 ? 1 : 0;
    zel_ini_file_free(ini);
    return enable;
}
