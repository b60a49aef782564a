#include "decode/processtreeselector.h"

ProcessTreeSelector& ProcessTreeSelector::Instance() {
    std::unique_ptr<ProcessTreeSelector>& selector = place();
    if (selector == nullptr) selector.reset(new ProcessTreeSelector);
    return *selector;
}

std::unique_ptr<ProcessTreeSelector>& ProcessTreeSelector::place() {
    static std::unique_ptr<ProcessTreeSelector> selector;
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
