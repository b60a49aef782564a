// Paths that begin with "@/": the folder of the calling module.
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "platform/zel_support.h"

namespace {

// Writes the file name of the module that holds the address. False when there is none or its path is too long.
bool module_file(const void* address, char* out, size_t size) {
    Dl_info info{};
    void* map = nullptr;
    if (dladdr1(address, &info, &map, RTLD_DL_LINKMAP) == 0 || info.dli_fname == nullptr) return false;
    // The program itself has no name among the loaded modules. dli_fname is then only the word by which it was started,
    // so the kernel is asked.
    if (static_cast<const link_map*>(map)->l_name[0] == '\0') {
        const ssize_t length = readlink("/proc/self/exe", out, size);
        if (length < 0 || static_cast<size_t>(length) >= size) return false;
        out[length] = '\0';
        return true;
    }
    return zel_str_strlcpy(out, info.dli_fname, size) < size;
}

int32_t put(char* out, uint32_t size, const char* folder, int folder_length, const char* rest) {
    const int length = snprintf(out, size, "%.*s%s", folder_length, folder, rest);
    return length >= 0 && static_cast<uint32_t>(length) < size ? 0 : -1;
}

}  // namespace

// Never inlined: inside its caller it would look at the return address of that caller.
__attribute__((noinline)) int32_t zel_dirutils_path_transform(const char* path, char* out, uint32_t size) {
    const void* const caller = __builtin_return_address(0);
    if (path == nullptr || out == nullptr || size == 0) return -1;
    const bool in_module = path[0] == '@' && (path[1] == '/' || path[1] == '\0');
    if (!in_module) return put(out, size, "", 0, path);

    out[0] = '\0';
    char file[PATH_MAX];
    if (!module_file(caller, file, sizeof file)) return -1;
    const char* const slash = strrchr(file, '/');
    if (slash == nullptr) return put(out, size, ".", 1, path + 1);
    return put(out, size, file, static_cast<int>(slash - file), path + 1);
}
