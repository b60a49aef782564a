#include "models/baton.h"

#include <pthread.h>

#include <cerrno>
#include <set>
#include <thread>

#include "platform/zel_support.h"

namespace models {
namespace {

struct Turn {
    Baton* baton = nullptr;
    int thread = 2;
    uint32_t switches = 0;
    bool refuse_mutex = false;
};
thread_local Turn t_turn;

// The recursive mutex of the support library. Only the thread with the baton touches one, so plain numbers are enough.
struct OwnMutex {
    int owner = -1;
    int depth = 0;
};

std::set<void*>& living_mutexes() {
    static std::set<void*> living;
    return living;
}

OwnMutex* living(void* handle, const char* fault) {
    if (living_mutexes().contains(handle)) return static_cast<OwnMutex*>(handle);
    Baton::note_fault(fault);
    return nullptr;
}

}  // namespace

void Baton::run(const std::function<void()>& first, const std::function<void()>& second) {
    std::thread other([&] { work(1, second); });
    std::thread one([&] { work(0, first); });
    one.join();
    other.join();
}

void Baton::work(int thread, const std::function<void()>& body) {
    t_turn = {this, thread};
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return turn_ == thread; });
    }
    try {
        body();
    } catch (const std::exception& e) {
        note_fault(e.what());
    }
    const std::lock_guard lock(mutex_);
    ended_[thread] = true;
    turn_ = 1 - thread;
    changed_.notify_all();
}

// Returns when the baton is back.
void Baton::hand_over() {
    const int thread = t_turn.thread;
    std::unique_lock lock(mutex_);
    if (ended_[1 - thread]) return;
    turn_ = 1 - thread;
    changed_.notify_all();
    changed_.wait(lock, [&] { return turn_ == thread; });
}

void Baton::begin_step(uint32_t switches) { t_turn.switches = switches; }

void Baton::place() {
    if (t_turn.baton == nullptr) return;
    const bool now = (t_turn.switches & 1) != 0;
    t_turn.switches >>= 1;
    if (now) t_turn.baton->hand_over();
}

int Baton::wait_for(const std::function<int()>& try_lock) {
    place();
    while (try_lock() != 0) {
        Baton* const baton = t_turn.baton;
        const int other = 1 - t_turn.thread;
        if (baton == nullptr || baton->ended_[other] || baton->waits_[other]) {
            note_fault("a lock that never comes free");
            return EDEADLK;
        }
        baton->waits_[t_turn.thread] = true;
        baton->hand_over();
        baton->waits_[t_turn.thread] = false;
    }
    return 0;
}

void Baton::unlocked() {
    if (t_turn.baton != nullptr) t_turn.baton->waits_[1 - t_turn.thread] = false;
}

void Baton::note_fault(const char* what) {
    if (t_turn.baton != nullptr && t_turn.baton->fault_.empty()) t_turn.baton->fault_ = what;
}

int Baton::self() { return t_turn.thread; }
bool& Baton::refuse_mutex() { return t_turn.refuse_mutex; }

}  // namespace models

using models::Baton;

// --- the mutex of the support library ---

int32_t zel_mutex_init(void** mutex) {
    Baton::place();
    *mutex = nullptr;
    if (Baton::refuse_mutex()) return -ENOMEM;
    *mutex = new models::OwnMutex;
    models::living_mutexes().insert(*mutex);
    return 0;
}

int32_t zel_mutex_lock(void* handle) {
    return -Baton::wait_for([&] {
        models::OwnMutex* const mutex = models::living(handle, "a mutex that is gone was locked");
        if (mutex == nullptr) return 0;
        if (mutex->depth > 0 && mutex->owner != Baton::self()) return EBUSY;
        mutex->owner = Baton::self();
        ++mutex->depth;
        return 0;
    });
}

int32_t zel_mutex_unlock(void* handle) {
    models::OwnMutex* const mutex = models::living(handle, "a mutex that is gone was unlocked");
    if (mutex == nullptr) return -EINVAL;
    if (mutex->depth == 0 || mutex->owner != Baton::self()) {
        Baton::note_fault("a mutex was unlocked by a thread that does not hold it");
        return -EPERM;
    }
    --mutex->depth;
    Baton::unlocked();
    return 0;
}

int32_t zel_mutex_destroy(void* handle) {
    Baton::place();
    models::OwnMutex* const mutex = models::living(handle, "a mutex that is gone was destroyed");
    if (mutex == nullptr) return -EINVAL;
    if (mutex->depth > 0) Baton::note_fault("a mutex was destroyed while a thread holds it");
    models::living_mutexes().erase(handle);
    delete mutex;
    return 0;
}

// --- the reader-writer lock of the threads library, which std::shared_mutex calls; the linker puts these before it ---

extern "C" {

int __real_pthread_rwlock_unlock(pthread_rwlock_t* lock);
int __wrap_pthread_rwlock_rdlock(pthread_rwlock_t* lock);
int __wrap_pthread_rwlock_wrlock(pthread_rwlock_t* lock);
int __wrap_pthread_rwlock_unlock(pthread_rwlock_t* lock);

int __wrap_pthread_rwlock_rdlock(pthread_rwlock_t* lock) {
    return Baton::wait_for([&] { return pthread_rwlock_tryrdlock(lock); });
}
int __wrap_pthread_rwlock_wrlock(pthread_rwlock_t* lock) {
    return Baton::wait_for([&] { return pthread_rwlock_trywrlock(lock); });
}
int __wrap_pthread_rwlock_unlock(pthread_rwlock_t* lock) {
    const int error = __real_pthread_rwlock_unlock(lock);
    Baton::unlocked();
    return error;
}
}
