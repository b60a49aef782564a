// Small utilities. All are safe to call from any thread.
#pragma once

#include <cstdint>
#include <string>

namespace CltCommon {

// Writes 36 characters and a terminator to pszGuid, which has room for 37; the size is asserted to be above 0 and not
// used otherwise. Always true.
bool CreateGuid(char* pszGuid, uint32_t cchGuidNameSize);

// Leaves an empty text: times are not formatted on this platform. A time of 0 is an assertion failure.
void FileTimeToString(std::string& strTime, uint64_t uTime);

// Settings readers. A value outside the limits gives the default. A key or file that cannot be read counts as the value
// 0, which is then tested like any other: with a lowest value of 0 the result is 0, not the default. The file is read
// anew at each call, and a failure to do so is a WARN line. Limits that make no sense are an assertion failure.
//
// IniGetUintExA reads with base 0, so that "0x10" and "020" are 16.
unsigned long IniGetUintExA(const char* pszSection, const char* pszKey, unsigned int uiDefault, unsigned int uiMinLimit,
                            unsigned int uiMaxLimit, const char* pszFilename);
// IniGetDoubleExA has, in spite of its name, the same integer logic with base 10: "0x10" is 0.
unsigned long IniGetDoubleExA(const char* pszSection, const char* pszKey, unsigned long dDefault,
                              unsigned long dMinLimit, unsigned long dMaxLimit, const char* pszFilename);

}  // namespace CltCommon

// Milliseconds of CLOCK_MONOTONIC.
uint64_t GetTickMs();

std::string UintToString(uint32_t value);
