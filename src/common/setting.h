// A key of a settings file with its default and its limits. There is one row for each setting, beside the value that it
// sets.
#pragma once

#include <cstdint>
#include <string>

namespace zel {

struct Setting {
    const char* file;  // "@/" stands for the plug-in's folder
    const char* section;
    const char* key;
    uint32_t otherwise;  // what a value outside the limits is replaced by
    uint32_t lowest;     // both limits are allowed values
    uint32_t highest;
    int base;  // 0: decimal, hexadecimal and octal forms; 10: decimal alone
};

inline constexpr const char* kPluginSettings = "@/../config/zelreshdl.ini";

// Where a value comes from, for people who ask. A start does not ask.
struct SettingSource {
    enum Found { in_file, no_key, no_file };

    Found found = no_file;
    std::string text;          // as it stands in the file
    unsigned long number = 0;  // what is tested against the limits
    bool replaced = false;     // the default is in force
};
// Both do nothing without a source.
inline void note_found(SettingSource* source, SettingSource::Found found, const char* text = "") {
    if (source == nullptr) return;
    source->found = found;
    source->text = text;
}
inline void note_counted(SettingSource* source, unsigned long number, bool replaced) {
    if (source == nullptr) return;
    source->number = number;
    source->replaced = replaced;
}

// Reads the value from the file at `path`. A key or a file that cannot be read counts as 0, which is tested against the
// limits like any other value; a WARN line says so. The file is read anew for each setting. Throws std::bad_alloc.
unsigned long read_setting(const Setting& setting, const std::string& path, SettingSource* source = nullptr);

}  // namespace zel
