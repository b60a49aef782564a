// Initialises once, on a flag that belongs to the caller.
#include <unistd.h>

#include <atomic>

#include "platform/zel_support.h"

// The flag is 0 at first, then the negated id of the thread that runs `init`, then 1. A thread that waits sleeps on the
// flag itself.
void zel_singleton_once(int32_t* once, void (*init)(void*), void* argument) {
    if (once == nullptr || init == nullptr) return;
    constexpr int32_t kDone = 1;
    const std::atomic_ref<int32_t> flag(*once);
    if (flag.load() == kDone) return;
    const int32_t self = -static_cast<int32_t>(gettid());
    for (;;) {
        int32_t seen = 0;
        if (flag.compare_exchange_strong(seen, self)) {
            init(argument);
            flag.store(kDone);
            flag.notify_all();
            return;
        }
        // Its own id means that `init` asks for what it is making. Waiting would never end.
        if (seen == kDone || seen == self) return;
        flag.wait(seen);
    }
}
