#include "common/pure_mode.h"

#include <cstdlib>

#include "common/ini_file.h"
#include "common/module_path.h"

// Two threads may read the file at the same time. The later answer is kept.
bool zel::PureMode::enabled() {
    int answer = answer_.load(std::memory_order_relaxed);
    if (answer == kUnknown) {
        answer = CheckAdvthreatsEnable(kPureModeSection) != 0 ? 0 : 1;
        answer_.store(answer, std::memory_order_relaxed);
    }
    return answer == 1;
}

// The key says whether the full work is enabled. Pure mode is the opposite.
int CheckAdvthreatsEnable(const char* pszSection, zel::SettingSource* source) {
    zel::note_found(source, zel::SettingSource::no_file);
    const zel::IniFile ini = zel::load_ini(zel::module_path(zel::kPureModeFile).c_str());
    if (ini == nullptr) return 1;
    const char* text = zel_ini_file_get(ini.get(), pszSection, zel::kPureModeKey);
    if (text == nullptr)
        zel::note_found(source, zel::SettingSource::no_key);
    else
        zel::note_found(source, zel::SettingSource::in_file, text);
    return text != nullptr && strtoul(text, nullptr, 10) != 0 ? 1 : 0;
}
