// Loading of libraries.
#include <dlfcn.h>

#include <cstdlib>
#include <mutex>

#include "platform/zel_support.h"

namespace {

constexpr int32_t kNotFound = static_cast<int32_t>(0x84ce0015);

// A leak report can name only functions of libraries that are still loaded; ZEL_DLL_UNLOAD asks for real unloading.
int open_flags() {
    const bool keep = ZEL_ADDRESS_SANITIZER != 0 && getenv("ZEL_DLL_UNLOAD") == nullptr;
    return RTLD_NOW | RTLD_LOCAL | (keep ? RTLD_NODELETE : 0);
}

// The loader has a lock of its own, which the thread sanitizer does not see; this one it sees. Recursive, since a
// library that begins or ends may load others.
std::recursive_mutex& loader_mutex() {
    static auto& mutex = *new std::recursive_mutex;  // libraries are closed while the process ends
    return mutex;
}

}  // namespace

int32_t zel_dll_open(const char* path, void** module) {
    if (module == nullptr) return kNotFound;
    const std::lock_guard lock(loader_mutex());
    // A null path would open the program itself.
    *module = path == nullptr ? nullptr : dlopen(path, open_flags());
    return *module == nullptr ? kNotFound : 0;
}

int32_t zel_dll_get_addr(void* module, const char* name, void** address) {
    if (address == nullptr) return kNotFound;
    // A null module would search the whole program.
    *address = module == nullptr || name == nullptr ? nullptr : dlsym(module, name);
    return *address == nullptr ? kNotFound : 0;
}

int32_t zel_dll_close(void* module) {
    const std::lock_guard lock(loader_mutex());
    return module != nullptr && dlclose(module) == 0 ? 0 : -1;
}
