// Ini files, read with inih. Upper and lower case of sections and keys count. When a key stands twice, the last one
// counts: a host changes a setting by appending to the file.
#include <ini.h>

#include <functional>
#include <map>
#include <memory>
#include <new>
#include <string>

#include "platform/zel_support.h"

namespace {

using Section = std::map<std::string, std::string, std::less<>>;

// What a handle leads to. It is not changed after loading, so any thread may read it.
struct IniFile {
    std::map<std::string, Section, std::less<>> sections;
    bool out_of_memory = false;
};

// An indented line is an entry of its own, not a continuation, and lines may be long. The parser's switches hold for
// the whole process.
bool set_up_parser() {
    ini_allow_multiline = false;
    ini_use_stack = false;
    ini_allow_realloc = true;
    ini_max_line = 1 << 20;
    return true;
}

// The C parser calls this, so nothing may be thrown. 0 marks the line as bad, and the parser goes on.
int add_value(void* user, const char* section, const char* name, const char* value) {
    auto* const file = static_cast<IniFile*>(user);
    try {
        file->sections[section][name] = value;
        return 1;
    } catch (const std::bad_alloc&) {
        file->out_of_memory = true;
        return 0;
    }
}

}  // namespace

int32_t zel_ini_file_load(const char* path, void** ini) {
    if (ini == nullptr) return -1;
    *ini = nullptr;
    if (path == nullptr) return -1;
    [[maybe_unused]] static const bool parser_is_set_up = set_up_parser();
    std::unique_ptr<IniFile> file(new (std::nothrow) IniFile);
    // A positive result is the number of the first bad line; the others have been read.
    if (file == nullptr || ini_parse(path, add_value, file.get()) < 0 || file->out_of_memory) return -1;
    *ini = file.release();
    return 0;
}

const char* zel_ini_file_get(void* ini, const char* section, const char* key) {
    if (ini == nullptr || section == nullptr || key == nullptr) return nullptr;
    const auto& sections = static_cast<const IniFile*>(ini)->sections;
    const auto in = sections.find(section);
    if (in == sections.end()) return nullptr;
    const auto found = in->second.find(key);
    return found == in->second.end() ? nullptr : found->second.c_str();
}

void zel_ini_file_free(void* ini) { delete static_cast<IniFile*>(ini); }
