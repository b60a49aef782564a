// A key of a settings file, with its default and its limits: one row for each setting, beside what it sets.
#pragma once

#include <cstdint>
#include <string>

namespace zel {

struct Setting {
    const char* file;  // "@/" is the plug-in's folder
    const char* section;
    const char* key;
    uint32_t otherwise;  // the value that stands for one outside the limits
    uint32_t lowest;
    uint32_t highest;
    int base;  // 0: decimal, hexadecimal and octal forms; 10: decimal alone
};

inline constexpr const char* kPluginSettings = "@/../config/zelreshdl.ini";

// The value in the file at `path`. A key or file that cannot be read counts as 0, which is tested against the limits like
// any other value; a WARN line says so. Throws std::bad_alloc.
unsigned long read_setting(const Setting& setting, const std::string& path);

}  // namespace zel
