#include "common/log.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace zel {
namespace {

std::atomic<long> g_pid{0};

}  // namespace

// getpid() is a system call, and one alert can write a hundred thousand lines. If the fork handler cannot be
// registered, nothing is kept and each line asks the system: a child process must not log its parent's id.
long log_pid() {
    long pid = g_pid.load(std::memory_order_relaxed);
    if (pid == 0) {
        static const int registered =
            pthread_atfork(nullptr, nullptr, [] { g_pid.store(0, std::memory_order_relaxed); });
        pid = static_cast<long>(getpid());
        if (registered == 0) g_pid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

}  // namespace zel
