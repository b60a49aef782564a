// Keeps the process whose tree was selected last: by a document, by a post-operation of an event, or by a DNS hit.
// Nothing reads the selection. Alarm worker only.
#pragma once

#include <cstdint>
#include <string>

#include "common/module_path.h"

extern const zel::LibraryRow kAdapter;

class ProcessTreeSelector {
public:
    // Made at the first call, which loads the adapter library; works without it. The decoder's state owns it.
    static ProcessTreeSelector& Instance();

    // Replaces the selection, or leaves it whole when there is no memory.
    void SetSelection(uint32_t nPid, int64_t llCreateTime, const std::string& strImage);
    // True once anything was selected in the life of the process.
    bool IsSelected() const { return bSelected != 0; }

private:
    friend struct ProcessTreeSelectorPeer;  // a test's: the selection is kept and nothing reads it

    ProcessTreeSelector();

    using SelectProcTree_t = void();
    SelectProcTree_t* pfnSelectProcTree = nullptr;  // resolved and kept; nothing calls it
    zel::Dll hModule;
    int32_t nPid = 0;
    int64_t llCreateTime = 0;
    std::string strImage;
    uint8_t bSelected = 0;
};
