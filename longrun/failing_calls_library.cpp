// What fails besides allocations: the calls of the C library and of the support library.
//
// Left out of what the plug-in imports:
//   - what cannot fail for a correct caller: locks, clocks, sleeps, thread names, texts in a room of their own;
//   - what gives back: close, fclose, dlclose, zel_thread_join, zel_dll_close, zel_mutex_destroy. Nothing could be done
//     about a failure there, and the plug-in does not look;
//   - parsers and writers of JSON and of messages: they fail by their allocations and by what they are given;
//   - getenv and get_agent_path, which tell what is there and have no failure of their own.
// pthread_create, pthread_mutex_init and stat are called by the support library alone, so zel_thread_start,
// zel_mutex_init and zel_path_is_exist_u stand for them. write stands behind fwrite.
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "longrun/failing_calls.h"
#include "longrun/failing_calls_count.h"
#include "platform/zel_support.h"

using failing_calls::fails;

namespace {

// What the support library answers for a library or a symbol that is not there.
constexpr int32_t kNotFound = static_cast<int32_t>(0x84ce0015);

}  // namespace

// Two calls in one: the opening itself, and what is done with the file then. Reading from a folder fails, and so does
// writing to a device that is full. A file that is to be read and is not there fails by itself.
INTERPOSED const char* failing_calls_file(const char* path, const char* mode) {
    using failing_calls::Through;
    const bool reads = mode[0] == 'r';
    if (reads && access(path, R_OK) != 0) return path;
    if (fails("fopen", EMFILE, path, Through::program)) return nullptr;
    if (fails(reads ? "fread" : "fwrite", 0, path, Through::program)) return reads ? "/" : "/dev/full";
    return path;
}

INTERPOSED int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    using Open = int(const char*, int, ...);
    return fails("open", EMFILE, path) ? -1 : NEXT(Open, "open")(path, flags, mode);
}
INTERPOSED ssize_t read(int descriptor, void* buffer, size_t size) {
    using Read = ssize_t(int, void*, size_t);
    return fails("read", EIO) ? -1 : NEXT(Read, "read")(descriptor, buffer, size);
}
INTERPOSED int fstat(int descriptor, struct stat* status) noexcept {
    using Fstat = int(int, struct stat*) noexcept;
    return fails("fstat", EIO) ? -1 : NEXT(Fstat, "fstat")(descriptor, status);
}
INTERPOSED off_t lseek(int descriptor, off_t offset, int whence) noexcept {
    using Lseek = off_t(int, off_t, int) noexcept;
    return fails("lseek", EIO) ? -1 : NEXT(Lseek, "lseek")(descriptor, offset, whence);
}
INTERPOSED ssize_t getrandom(void* buffer, size_t size, unsigned flags) {
    using Getrandom = ssize_t(void*, size_t, unsigned);
    return fails("getrandom", ENOSYS) ? -1 : NEXT(Getrandom, "getrandom")(buffer, size, flags);
}

// The next three look at who called them, so they are left by a jump: the build turns a call in the last place into
// one.
INTERPOSED void* dlopen(const char* path, int flags) noexcept {
    using Dlopen = void*(const char*, int) noexcept;
    return fails("dlopen", 0, path == nullptr ? "" : path) ? nullptr : NEXT(Dlopen, "dlopen")(path, flags);
}
INTERPOSED void* dlsym(void* handle, const char* name) noexcept {
    using Dlsym = void*(void*, const char*) noexcept;
    return fails("dlsym", 0, name) ? nullptr : NEXT(Dlsym, "dlsym")(handle, name);
}
INTERPOSED int32_t zel_dirutils_path_transform(const char* path, char* out, uint32_t size) {
    return fails("zel_dirutils_path_transform", 0, path)
               ? -1
               : NEXT(decltype(zel_dirutils_path_transform), "zel_dirutils_path_transform")(path, out, size);
}

INTERPOSED int32_t zel_mutex_init(void** mutex) {
    if (!fails("zel_mutex_init", 0)) return NEXT(decltype(zel_mutex_init), "zel_mutex_init")(mutex);
    *mutex = nullptr;
    return -EAGAIN;
}
INTERPOSED int32_t zel_thread_start(void** thread, int (*entry)(void*), void* param) {
    if (!fails("zel_thread_start", 0))
        return NEXT(decltype(zel_thread_start), "zel_thread_start")(thread, entry, param);
    *thread = nullptr;
    return -EAGAIN;
}
INTERPOSED int32_t zel_dll_open(const char* path, void** module) {
    if (!fails("zel_dll_open", 0, path)) return NEXT(decltype(zel_dll_open), "zel_dll_open")(path, module);
    *module = nullptr;
    return kNotFound;
}
INTERPOSED int32_t zel_dll_get_addr(void* module, const char* name, void** address) {
    if (!fails("zel_dll_get_addr", 0, name))
        return NEXT(decltype(zel_dll_get_addr), "zel_dll_get_addr")(module, name, address);
    *address = nullptr;
    return kNotFound;
}
INTERPOSED int32_t zel_path_is_exist_u(const char* path) {
    return fails("zel_path_is_exist_u", 0, path) ? 0 : NEXT(decltype(zel_path_is_exist_u), "zel_path_is_exist_u")(path);
}
INTERPOSED int32_t zel_ini_file_load(const char* path, void** ini) {
    if (!fails("zel_ini_file_load", 0, path)) return NEXT(decltype(zel_ini_file_load), "zel_ini_file_load")(path, ini);
    *ini = nullptr;
    return -1;
}
INTERPOSED const char* zel_ini_file_get(void* ini, const char* section, const char* key) {
    return fails("zel_ini_file_get", 0, key) ? nullptr
                                             : NEXT(decltype(zel_ini_file_get), "zel_ini_file_get")(ini, section, key);
}
