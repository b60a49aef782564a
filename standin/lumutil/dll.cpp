// Loading of libraries.
#include <dlfcn.h>

#include <cstdlib>
#include <mutex>

#include "platform/zel_support.h"

namespace {

// The agent's code for all failures of this kind.
constexpr int32_t kNotFound = static_cast<int32_t>(0x84ce0015);

// A leak report can name only functions of libraries that are still loaded, so libraries stay under the address
// sanitizer. ZEL_DLL_UNLOAD asks for real unloading all the same.
int open_flags() {
    const bool keep = ZEL_ADDRESS_SANITIZER != 0 && getenv("ZEL_DLL_UNLOAD") == nullptr;
    return RTLD_NOW | RTLD_LOCAL | (keep ? RTLD_NODELETE : 0);
}

// The loader has a lock of its own, but the thread sanitizer does not see that one; it sees this one. It is recursive,
// because a library may load others when it begins or ends. It is never destroyed, because libraries are closed while
// the process ends.
std::recursive_mutex& loader_mutex() {
    static auto& mutex = *new std::recursive_mutex;
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
