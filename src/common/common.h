// Small utilities. Any thread may call them.
#pragma once

#include <cstdint>
#include <string>

namespace zel {
struct SettingSource;
}

namespace CltCommon {

// Makes a random GUID. It writes 36 characters and a terminator to pszGuid, which must have room for 37. The size is
// asserted to be above 0; it is not used otherwise. The answer is always true.
bool CreateGuid(char* pszGuid, uint32_t cchGuidNameSize);

// Leaves an empty text: this platform does not format times. A time of 0 is an assertion failure.
void FileTimeToString(std::string& strTime, uint64_t uTime);

// Readers of settings. A value outside the limits gives the default.
//
// A key or a file that cannot be read counts as the value 0, which is then tested like any other value. With a lowest
// value of 0 the result is therefore 0 and not the default. A WARN line says that reading failed. The file is read anew
// at each call. Limits that make no sense are an assertion failure. `source` receives where the value comes from.
//
// IniGetUintExA reads with base 0, so "0x10" and "020" are both 16.
unsigned long IniGetUintExA(const char* pszSection, const char* pszKey, unsigned int uiDefault, unsigned int uiMinLimit,
                            unsigned int uiMaxLimit, const char* pszFilename, zel::SettingSource* source = nullptr);
// IniGetDoubleExA reads integers in spite of its name, with base 10: "0x10" is 0.
unsigned long IniGetDoubleExA(const char* pszSection, const char* pszKey, unsigned long dDefault,
                              unsigned long dMinLimit, unsigned long dMaxLimit, const char* pszFilename,
                              zel::SettingSource* source = nullptr);

}  // namespace CltCommon

// Milliseconds of CLOCK_MONOTONIC. The ages of cache entries and of rule matches are counted in it.
uint64_t GetTickMs();

std::string UintToString(uint32_t value);
