// What would hold up or end the program, tried out before it happens.
#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "host/commands/status.h"
#include "host/lib/failure.h"

namespace zelhost {
namespace {

// A file that was cut off ends the process that maps it, and a constructor may do so as well. The child opens the
// library in its stead; whether the loader accepts it is not looked at here.
// Throws Failure when the child does not end as it should.
// Nothing of the library is called in this process, so a failure here costs only the child.
void try_library(const std::string& path) {
    const pid_t child = fork();
    if (child < 0) throw Failure("cannot try {}: {}", path, strerror(errno));
    if (child == 0) {
        // A crash of the child must not leave a file behind.
        constexpr rlimit kNoCore{};
        setrlimit(RLIMIT_CORE, &kNoCore);
        dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        _exit(0);
    }
    int ended = 0;
    // A signal may come while the child runs.
    while (waitpid(child, &ended, 0) < 0 && errno == EINTR) continue;
    if (WIFEXITED(ended) && WEXITSTATUS(ended) == 0) return;
    throw Failure("opening {} ends the process ({}); put a sound file in its place", path,
                  WIFSIGNALED(ended) ? strsignal(WTERMSIG(ended)) : "it exits");
}

}  // namespace

// A FIFO is looked for first, because opening it would wait for a writer.
void try_file(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_fifo(path, error))
        throw Failure("{} is a FIFO, and whoever opens it waits; put a file in its place", path);
    if (path.ends_with(".so")) try_library(path);
}

}  // namespace zelhost
