#include <cstdlib>

#include "common/checks.h"
#include "common/common.h"
#include "common/ini_file.h"
#include "common/log.h"
#include "common/setting.h"

namespace {

// The number at the key; 0 when file or key cannot be read.
unsigned long read_number(const char* section, const char* key, const char* file, int base,
                          zel::SettingSource* source) {
    const zel::IniFile ini = zel::load_ini(file);
    if (ini == nullptr) {
        zel::note_found(source, zel::SettingSource::no_file);
        LOG_WARN("ini_file_load failed!");
        return 0;
    }
    const char* text = zel_ini_file_get(ini.get(), section, key);
    if (text == nullptr) {
        zel::note_found(source, zel::SettingSource::no_key);
        LOG_WARN("ini_file_get failed!");
        return 0;
    }
    zel::note_found(source, zel::SettingSource::in_file, text);
    return strtoul(text, nullptr, base);
}

// The source gets the number that was tested, also when the default is used in its place.
unsigned long within(unsigned long value, unsigned long lowest, unsigned long highest, unsigned long otherwise,
                     zel::SettingSource* source) {
    const bool is_within = value >= lowest && value <= highest;
    zel::note_counted(source, value, !is_within);
    return is_within ? value : otherwise;
}

}  // namespace

unsigned long CltCommon::IniGetUintExA(const char* pszSection, const char* pszKey, unsigned int uiDefault,
                                       unsigned int uiMinLimit, unsigned int uiMaxLimit, const char* pszFilename,
                                       zel::SettingSource* source) {
    ZEL_ASSERT(pszSection && pszKey && pszFilename);
    ZEL_ASSERT(uiDefault > 0 && uiMaxLimit > 0);
    ZEL_ASSERT(uiMaxLimit >= uiMinLimit);
    return within(read_number(pszSection, pszKey, pszFilename, 0, source), uiMinLimit, uiMaxLimit, uiDefault, source);
}

unsigned long CltCommon::IniGetDoubleExA(const char* pszSection, const char* pszKey, unsigned long dDefault,
                                         unsigned long dMinLimit, unsigned long dMaxLimit, const char* pszFilename,
                                         zel::SettingSource* source) {
    ZEL_ASSERT(pszSection && pszKey && pszFilename);
    // The limit cannot be below 0, and a compiler may warn of such a test. But the test is part of the message, so the
    // text is written out here.
    if (!(dDefault > 0 && dMaxLimit > 0)) zel::assertion_failed("dDefault > 0 && dMaxLimit > 0 && dMinLimit >= 0");
    ZEL_ASSERT(dMaxLimit >= dMinLimit);
    return within(read_number(pszSection, pszKey, pszFilename, 10, source), dMinLimit, dMaxLimit, dDefault, source);
}

unsigned long zel::read_setting(const Setting& setting, const std::string& path, SettingSource* source) {
    if (setting.base == 0)
        return CltCommon::IniGetUintExA(setting.section, setting.key, setting.otherwise, setting.lowest,
                                        setting.highest, path.c_str(), source);
    return CltCommon::IniGetDoubleExA(setting.section, setting.key, setting.otherwise, setting.lowest, setting.highest,
                                      path.c_str(), source);
}
