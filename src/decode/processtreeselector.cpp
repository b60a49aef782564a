#include "decode/processtreeselector.h"

#include <memory>

#include "decode/decode_state.h"

namespace {

constexpr const char* kSelect = "SelectProcTree";

}  // namespace

constinit const zel::LibraryRow kAdapter{"@/../lib/libzellxadapter.so", {&kSelect, 1}, 260};

// A first call that fails for want of memory leaves nothing, and the next one tries again.
ProcessTreeSelector& ProcessTreeSelector::Instance() {
    static ProcessTreeSelector& selector =
        *(zel::decode_state().selector = std::unique_ptr<ProcessTreeSelector>(new ProcessTreeSelector));
    return selector;
}

ProcessTreeSelector::ProcessTreeSelector() {
    hModule.open(kAdapter.where());
    if (hModule.handle() == nullptr) return;
    hModule.get(kSelect, pfnSelectProcTree);
    if (pfnSelectProcTree == nullptr) hModule.close();
}

void ProcessTreeSelector::SetSelection(uint32_t nPid_, int64_t llCreateTime_, const std::string& strImage_) {
    strImage = strImage_;  // first, as it alone can fail
    nPid = static_cast<int32_t>(nPid_);
    llCreateTime = llCreateTime_;
    bSelected = 1;
}
