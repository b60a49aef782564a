// While one of these lives the support library makes no mutex.
#pragma once

#include <dlfcn.h>

#include <atomic>
#include <cstdint>

#include "platform/zel_support.h"

namespace zel_test {

inline std::atomic<int> mutex_refusals{0};

struct MutexRefusal {
    MutexRefusal() { ++mutex_refusals; }
    ~MutexRefusal() { --mutex_refusals; }
};

}  // namespace zel_test

extern "C" __attribute__((used)) inline int32_t zel_mutex_init(void** mutex) {
    static const auto real = reinterpret_cast<int32_t (*)(void**)>(dlsym(RTLD_NEXT, "zel_mutex_init"));
    return zel_test::mutex_refusals > 0 ? -1 : real(mutex);
}
