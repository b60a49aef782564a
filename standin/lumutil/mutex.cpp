// Recursive mutexes behind an opaque handle. A failure is the negated error number of the threads library.
#include <pthread.h>

#include <cerrno>
#include <memory>
#include <new>

#include "platform/zel_support.h"

namespace {

pthread_mutex_t* native(void* handle) { return static_cast<pthread_mutex_t*>(handle); }

}  // namespace

int32_t zel_mutex_init(void** mutex) {
    if (mutex == nullptr) return -EINVAL;
    *mutex = nullptr;
    // Memory that runs out is an error code here, since the caller is C code.
    std::unique_ptr<pthread_mutex_t> made(new (std::nothrow) pthread_mutex_t);
    if (made == nullptr) return -ENOMEM;
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    // Recursive, as the agent promises it.
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    const int error = pthread_mutex_init(made.get(), &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (error == 0) *mutex = made.release();
    return -error;
}

int32_t zel_mutex_lock(void* mutex) { return mutex == nullptr ? -EINVAL : -pthread_mutex_lock(native(mutex)); }

int32_t zel_mutex_unlock(void* mutex) { return mutex == nullptr ? -EINVAL : -pthread_mutex_unlock(native(mutex)); }

int32_t zel_mutex_destroy(void* mutex) {
    if (mutex == nullptr) return -EINVAL;
    // A mutex that is still held stays allocated: its holder will unlock it.
    const int error = pthread_mutex_destroy(native(mutex));
    if (error == 0) delete native(mutex);
    return -error;
}
