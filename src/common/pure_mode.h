// Pure mode: the plug-in works without data store and trace module.
#pragma once

namespace zel {

// One cached answer, made at the first call and kept for the life of the process. The bus side and the pipeline keep one
// each, so that both stand by what they saw first.
class PureMode {
public:
    bool enabled();

private:
    int answer_ = -1;
};

}  // namespace zel

// The number at "enable" in a section of zel_pure_mode.ini. 1 when the file cannot be loaded, 0 when the key is missing.
int CheckAdvthreatsEnable(const char* pszSection);
