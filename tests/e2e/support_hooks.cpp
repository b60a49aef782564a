#include "e2e/support_hooks.h"

#include <dlfcn.h>

#include "platform/zel_support.h"

#define OVERRIDE extern "C" __attribute__((visibility("default")))

using namespace e2e;

namespace {

constexpr int32_t kRefused = -1;

thread_local bool t_joined = false;

bool is_refused(std::atomic<int>& left) { return left > 0 && --left == 0; }

template <class F>
F* real(F*, const char* name) {
    return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}
#define REAL(name) real(&name, #name)

}  // namespace

OVERRIDE int32_t zel_dll_get_addr(void* module, const char* name, void** address) {
    static auto* const next = REAL(zel_dll_get_addr);
    if (std::string_view(refused_symbol) != name) return next(module, name, address);
    *address = nullptr;
    return kRefused;
}

OVERRIDE int32_t zel_mutex_init(void** mutex) {
    static auto* const next = REAL(zel_mutex_init);
    return is_refused(refused_mutex) ? kRefused : next(mutex);
}

OVERRIDE int32_t zel_thread_start(void** thread, int (*entry)(void*), void* param) {
    static auto* const next = REAL(zel_thread_start);
    return is_refused(refused_thread) ? kRefused : next(thread, entry, param);
}

OVERRIDE int32_t zel_thread_join(void* thread) {
    static auto* const next = REAL(zel_thread_join);
    is_joining = true;
    t_joined = true;
    return next(thread);
}

OVERRIDE int32_t zel_mutex_unlock(void* mutex) {
    static auto* const next = REAL(zel_mutex_unlock);
    const int32_t result = next(mutex);
    if (t_joined && after_join_and_unlock) after_join_and_unlock();
    return result;
}
