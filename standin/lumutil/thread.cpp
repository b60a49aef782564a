// Threads behind an opaque handle. A failure is the negated error number of the threads library.
#include <pthread.h>

#include <cerrno>
#include <memory>
#include <new>

#include "platform/zel_support.h"

namespace {

// What a handle leads to. zel_thread_start makes it and zel_thread_join frees it.
struct Thread {
    pthread_t id;
    int (*entry)(void*);
    void* param;
};

// An exception that reaches this function ends the process with the runtime's message.
extern "C" void* run_thread(void* handle) noexcept {
    const Thread* const thread = static_cast<Thread*>(handle);
    thread->entry(thread->param);
    return nullptr;
}

}  // namespace

int32_t zel_thread_start(void** thread, int (*entry)(void*), void* param) {
    if (thread == nullptr || entry == nullptr) return -EINVAL;
    *thread = nullptr;
    std::unique_ptr<Thread> made(new (std::nothrow) Thread{{}, entry, param});
    if (made == nullptr) return -ENOMEM;
    // The new thread reads the record at once, so the record is complete before the thread starts.
    const int error = pthread_create(&made->id, nullptr, run_thread, made.get());
    if (error == 0) *thread = made.release();
    return -error;
}

int32_t zel_thread_join(void* thread) {
    if (thread == nullptr) return -EINVAL;
    auto* const handle = static_cast<Thread*>(thread);
    const int error = pthread_join(handle->id, nullptr);
    if (error == 0) delete handle;
    return -error;
}
