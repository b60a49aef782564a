// Functions of the support library that a test lets fail, or whose call it waits for. They are defined here, in the
// program itself, and win over the library's.
#pragma once

#include <dlfcn.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string_view>

#include "platform/zel_support.h"

namespace zel_test {

// A symbol that is not found.
inline std::atomic<const char*> refused_symbol{""};
// How many calls from now on the one is that fails; 0 refuses nothing, -1 all.
inline std::atomic<int> refused_mutex{0}, refused_thread{0}, refused_ini{0};
inline bool is_refused(std::atomic<int>& left) { return left < 0 || (left > 0 && --left == 0); }

// Runs when the plug-in begins to wait for one of its workers.
inline std::function<void()> before_join;

}  // namespace zel_test

#define ZEL_OVERRIDE extern "C" __attribute__((used, visibility("default"))) inline int32_t
#define ZEL_REAL(name) reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))

ZEL_OVERRIDE zel_dll_get_addr(void* module, const char* name, void** address) {
    static const auto real = ZEL_REAL(zel_dll_get_addr);
    return zel_test::refused_symbol.load() == std::string_view(name) ? -1 : real(module, name, address);
}
ZEL_OVERRIDE zel_mutex_init(void** mutex) {
    static const auto real = ZEL_REAL(zel_mutex_init);
    return zel_test::is_refused(zel_test::refused_mutex) ? -1 : real(mutex);
}
ZEL_OVERRIDE zel_ini_file_load(const char* path, void** ini) {
    static const auto real = ZEL_REAL(zel_ini_file_load);
    return zel_test::is_refused(zel_test::refused_ini) ? -1 : real(path, ini);
}
ZEL_OVERRIDE zel_thread_start(void** thread, int (*entry)(void*), void* param) {
    static const auto real = ZEL_REAL(zel_thread_start);
    return zel_test::is_refused(zel_test::refused_thread) ? -1 : real(thread, entry, param);
}
ZEL_OVERRIDE zel_thread_join(void* thread) {
    static const auto real = ZEL_REAL(zel_thread_join);
    if (zel_test::before_join) zel_test::before_join();
    return real(thread);
}
