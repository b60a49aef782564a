// A mutex of the support library and a lock for a scope. The library's handle is a bare pointer, which clang's thread
// safety analysis cannot name; it can name this class.
#pragma once

#include <mutex>

#include "common/thread_annotations.h"
#include "platform/zel_support.h"

namespace zel {

class CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    ~Mutex() { destroy(); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Makes the handle unless there is one. False if the library refuses. The caller sees to it that no other thread
    // uses the mutex yet.
    bool init() {
        if (handle_ == nullptr && zel_mutex_init(&handle_) != 0) handle_ = nullptr;
        return handle_ != nullptr;
    }
    // No thread may hold the mutex or be about to take it.
    void destroy() {
        if (handle_ != nullptr) zel_mutex_destroy(handle_);
        handle_ = nullptr;
    }
    // False before init and after destroy. Then lock and unlock do nothing, so a caller that needs the lock asks first.
    bool valid() const { return handle_ != nullptr; }

    void lock() ACQUIRE() {
        if (handle_ != nullptr) zel_mutex_lock(handle_);
    }
    void unlock() RELEASE() {
        if (handle_ != nullptr) zel_mutex_unlock(handle_);
    }

private:
    void* handle_ = nullptr;
};

// A mutex of the C++ library that the analysis can name. It guards state of our own that outlives each start and stop,
// and it needs no making that could fail.
class CAPABILITY("mutex") PlainMutex {
public:
    void lock() ACQUIRE() { mutex_.lock(); }
    void unlock() RELEASE() { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

// Holds a mutex of either kind for a scope.
template <class M>
class SCOPED_CAPABILITY Lock {
public:
    explicit Lock(M& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~Lock() RELEASE() { mutex_.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    M& mutex_;
};

}  // namespace zel
