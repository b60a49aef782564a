// An ini file as the support library parses it.
#pragma once

#include <memory>

#include "platform/zel_support.h"

namespace zel {

struct IniCloser {
    void operator()(void* ini) const { zel_ini_file_free(ini); }
};
// Owns the parsed file. The texts of zel_ini_file_get live as long as this owner.
using IniFile = std::unique_ptr<void, IniCloser>;

// Null when the file cannot be loaded.
inline IniFile load_ini(const char* path) {
    void* ini = nullptr;
    return IniFile(zel_ini_file_load(path, &ini) == 0 ? ini : nullptr);
}

}  // namespace zel
