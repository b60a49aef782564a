#include "host/lib/own_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

// Far beyond what the largest picture takes.
// The alarm ends the child when its time is over.
constexpr unsigned kLongestSeconds = 60;
// The first byte of what the child writes.
constexpr char kResult = '+';
constexpr char kThrown = '-';

// A pipe takes a part at a time, and a signal may come between.
// A parent that has gone ends the writing.
void write_all(int descriptor, const std::string& text) {
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t part = write(descriptor, text.data() + written, text.size() - written);
        if (part < 0 && errno != EINTR) return;  // nobody reads any more
        if (part > 0) written += static_cast<size_t>(part);
    }
}

// To the end, which comes when the child ends, however it does.
std::string read_all(int descriptor) {
    std::string text;
    char buffer[1 << 16];
    for (;;) {
        const ssize_t part = read(descriptor, buffer, sizeof buffer);
        if (part > 0) text.append(buffer, static_cast<size_t>(part));
        if (part == 0 || (part < 0 && errno != EINTR)) return text;
    }
}

// Leaves without the ends of static objects, which are the parent's.
[[noreturn]] void run_child(int descriptor, const std::function<std::string()>& work) {
    // A handler of the parent would keep the child alive.
    signal(SIGALRM, SIG_DFL);
    alarm(kLongestSeconds);
    std::string answer;
    try {
        // The first byte tells the parent what the rest is.
        answer = kResult + work();
    } catch (const std::exception& e) {
        answer = kThrown + std::string(e.what());
    }
    write_all(descriptor, answer);
    _exit(0);
}

}  // namespace

// The answer is read before the child is waited for: it is larger than a pipe. A crash is told by its signal, and an
// answer that was cut off by it is not used.
std::string in_own_process(const char* what, const std::function<std::string()>& work) {
    int ends[2];
    // The descriptors are not left to programs that others may start.
    if (pipe2(ends, O_CLOEXEC) != 0) throw Failure("cannot {}: {}", what, strerror(errno));
    const pid_t child = fork();
    // The next calls may change the error.
    const int error = errno;
    if (child == 0) {
        close(ends[0]);
        run_child(ends[1], work);
    }
    // Without this the parent would wait for an end that its own descriptor holds back.
    close(ends[1]);
    std::string answer = child < 0 ? "" : read_all(ends[0]);
    close(ends[0]);
    if (child < 0) throw Failure("cannot {}: {}", what, strerror(error));
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
        throw Failure("cannot {}: not done after {} s", what, kLongestSeconds);
    if (WIFSIGNALED(status)) throw Failure("cannot {}: {}", what, strsignal(WTERMSIG(status)));
    if (answer.empty() || WEXITSTATUS(status) != 0)
        // An answer that has no first byte was never written.
        throw Failure("cannot {}: its process ended with status {}", what, WEXITSTATUS(status));
    if (answer[0] == kThrown) throw Failure("cannot {}: {}", what, answer.substr(1));
    return answer.erase(0, 1);
}

}  // namespace zelhost
