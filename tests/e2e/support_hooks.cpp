#include "e2e/support_hooks.h"

#include <dlfcn.h>

#include <atomic>
#include <mutex>

#include "platform/zel_support.h"

#define OVERRIDE extern "C" __attribute__((visibility("default")))

namespace {

constexpr int32_t kRefused = -1;

std::mutex g_mutex;
std::string g_symbol;
std::atomic<int> g_mutexes_left{0};
std::atomic<int> g_threads_left{0};
std::atomic<bool> g_joining{false};
std::function<void()> g_after_unlock;
thread_local bool t_joined = false;

bool is_refused(std::atomic<int>& left) { return left > 0 && --left == 0; }

template <class F>
F* real(F*, const char* name) {
    return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}
#define REAL(name) real(&name, #name)

}  // namespace

OVERRIDE int32_t zel_dll_get_addr(void* module, const char* name, void** address) {
    {
        const std::lock_guard lock(g_mutex);
        if (g_symbol == name) {
            *address = nullptr;
            return kRefused;
        }
    }
    static auto* const next = REAL(zel_dll_get_addr);
    return next(module, name, address);
}

OVERRIDE int32_t zel_mutex_init(void** mutex) {
    static auto* const next = REAL(zel_mutex_init);
    return is_refused(g_mutexes_left) ? kRefused : next(mutex);
}

OVERRIDE int32_t zel_thread_start(void** thread, int (*entry)(void*), void* param) {
    static auto* const next = REAL(zel_thread_start);
    return is_refused(g_threads_left) ? kRefused : next(thread, entry, param);
}

OVERRIDE int32_t zel_thread_join(void* thread) {
    static auto* const next = REAL(zel_thread_join);
    g_joining = true;
    t_joined = true;
    return next(thread);
}

OVERRIDE int32_t zel_mutex_unlock(void* mutex) {
    static auto* const next = REAL(zel_mutex_unlock);
    const int32_t result = next(mutex);
    if (t_joined && g_after_unlock) g_after_unlock();
    return result;
}

namespace e2e {

void refuse_symbol(const std::string& name) {
    const std::lock_guard lock(g_mutex);
    g_symbol = name;
}
void refuse_mutex(int number) { g_mutexes_left = number; }
void refuse_thread(int number) { g_threads_left = number; }
void when_unlocked_after_join(std::function<void()> hook) { g_after_unlock = std::move(hook); }
bool is_joining() { return g_joining; }

}  // namespace e2e
