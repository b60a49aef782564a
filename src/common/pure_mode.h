// Pure mode: the plug-in works without data store and trace module.
#pragma once

#include <atomic>

namespace zel {

// One cached answer, made at the first call and kept for the life of the process. The bus side and the pipeline keep
// one each, so that both stand by what they saw first.
class PureMode {
public:
    bool enabled();

private:
    static constexpr int kUnknown = -1;
    std::atomic<int> answer_{kUnknown};
};

}  // namespace zel

// 1 if the number at "enable" in the section of zel_pure_mode.ini is not 0, or if the file cannot be loaded; 0 if it is
// 0 or missing.
int CheckAdvthreatsEnable(const char* pszSection);
