#include <cstdlib>
#include <memory>

#include "common/checks.h"
#include "common/common.h"
#include "common/log.h"

namespace {

struct IniDeleter {
    void operator()(void* ini) const { zel_ini_file_free(ini); }
};

// The number at the key; 0 when file or key cannot be read.
unsigned long read_number(const char* section, const char* key, const char* file, int base) {
    void* handle = nullptr;
    if (zel_ini_file_load(file, &handle) != 0) {
        LOG_WARN("ini_file_load failed!");
        return 0;
    }
    const std::unique_ptr<void, IniDeleter> ini(handle);
    const char* text = zel_ini_file_get(handle, section, key);
    if (text == nullptr) {
        LOG_WARN("ini_file_get failed!");
        return 0;
    }
    return strtoul(text, nullptr, base);
}

unsigned long within(unsigned long value, unsigned long lowest, unsigned long highest, unsigned long otherwise) {
    return value >= lowest && value <= highest ? value : otherwise;
}

}  // namespace

unsigned long CltCommon::IniGetUintExA(const char* pszSection, const char* pszKey, unsigned int uiDefault,
                                       unsigned int uiMinLimit, unsigned int uiMaxLimit, const char* pszFilename) {
    ZEL_ASSERT(pszSection && pszKey && pszFilename);
    ZEL_ASSERT(uiDefault > 0 && uiMaxLimit > 0);
    ZEL_ASSERT(uiMaxLimit >= uiMinLimit);
    return within(read_number(pszSection, pszKey, pszFilename, 0), uiMinLimit, uiMaxLimit, uiDefault);
}

unsigned long CltCommon::IniGetDoubleExA(const char* pszSection, const char* pszKey, unsigned long dDefault,
                                         unsigned long dMinLimit, unsigned long dMaxLimit, const char* pszFilename) {
    ZEL_ASSERT(pszSection && pszKey && pszFilename);
    // A comparison of an unsigned number with 0 that a compiler may call useless; its text is part of the message.
    if (!(dDefault > 0 && dMaxLimit > 0)) zel::assertion_failed("dDefault > 0 && dMaxLimit > 0 && dMinLimit >= 0");
    ZEL_ASSERT(dMaxLimit >= dMinLimit);
    return within(read_number(pszSection, pszKey, pszFilename, 10), dMinLimit, dMaxLimit, dDefault);
}
