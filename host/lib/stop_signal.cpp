#include "host/lib/stop_signal.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/lib/failure.h"

namespace zelhost {

// Blocked signals wait in the descriptor, where a poll finds them; a handler could do next to nothing.
StopSignal::StopSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC);
    if (descriptor_ < 0) throw Failure("cannot watch for signals: {}", strerror(errno));
}

StopSignal::~StopSignal() { close(descriptor_); }

// The signal is blocked in every thread and so never delivered; it only makes the descriptor readable.
void StopSignal::request() const { kill(getpid(), SIGTERM); }

// The signal is not read, so that every later sleep ends at once.
bool StopSignal::sleep(std::chrono::milliseconds time) const {
    pollfd wanted{descriptor_, POLLIN, 0};
    return poll(&wanted, 1, static_cast<int>(time.count())) > 0;
}

}  // namespace zelhost
