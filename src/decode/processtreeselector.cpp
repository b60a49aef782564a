#include "decode/processtreeselector.h"

#include <memory>

// Its owner is made at load and so goes after the pipeline, whose worker may run until then.
static std::unique_ptr<ProcessTreeSelector> g_selector;

ProcessTreeSelector& ProcessTreeSelector::Instance() {
    static ProcessTreeSelector& selector =
        *(g_selector = std::unique_ptr<ProcessTreeSelector>(new ProcessTreeSelector));
    return selector;
}

ProcessTreeSelector::ProcessTreeSelector() {
    constexpr uint32_t kAdapterPathSize = 260;
    hModule.open(zel::module_path("@/../lib/libzellxadapter.so", kAdapterPathSize));
    if (hModule.handle() == nullptr) return;
    hModule.get("SelectProcTree", pfnSelectProcTree);
    if (pfnSelectProcTree == nullptr) hModule.close();
}

void ProcessTreeSelector::SetSelection(uint32_t nPid_, int64_t llCreateTime_, const std::string& strImage_) {
    nPid = static_cast<int32_t>(nPid_);
    llCreateTime = llCreateTime_;
    strImage = strImage_;
    bSelected = 1;
}
