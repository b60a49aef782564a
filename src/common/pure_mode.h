// Pure mode: the plug-in works without data store and trace module. Nothing is traced, and only brute force and
// abnormal logins are subscribed.
#pragma once

#include <atomic>

#include "common/setting.h"

namespace zel {

inline constexpr const char* kPureModeFile = "@/../../config/zel_pure_mode.ini";
inline constexpr const char* kPureModeSection = "advthreats_module";
inline constexpr const char* kPureModeKey = "enable";

// One cached answer. It is read from the file at the first call and kept until the process ends. The bus side and the
// pipeline keep one each, so an edit of the file between their first calls leaves them with different answers. Any
// thread.
class PureMode {
public:
    bool enabled();

private:
    static constexpr int kUnknown = -1;
    std::atomic<int> answer_{kUnknown};
};

}  // namespace zel

// Reads zel_pure_mode.ini. 1 if the number at "enable" in the section is not 0, or if the file cannot be loaded: an
// agent without the file works in full. 0 if the number is 0 or missing. `source` receives what was found.
int CheckAdvthreatsEnable(const char* pszSection, zel::SettingSource* source = nullptr);
