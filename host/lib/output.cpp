#include "host/lib/output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/lib/console.h"
#include "host/lib/failure.h"

namespace zelhost {
namespace {

// Standard output belongs to the process.
int keep_open(FILE* file) { return fflush(file); }

FILE* open_output(const std::string& path) {
    if (path == "-") return stdout;
    FILE* const file = fopen(path.c_str(), "we");  // "e" closes the file in a child process
    if (file == nullptr) throw Failure("cannot open the output {}: {}", path, strerror(errno));
    return file;
}

}  // namespace

// A limit of 0 is never reached, since the count is compared after it has grown.
Output::Output(const std::string& path, uint64_t limit, std::function<void()> on_end)
    : path_(path),
      limit_(limit),
      on_end_(std::move(on_end)),
      file_(open_output(path), path == "-" ? keep_open : fclose),
      terminal_(isatty(fileno(file_.get())) == 1) {}

void Output::show(const std::string& line) {
    const std::lock_guard lock(mutex_);
    if (state_ != State::open) return;
    write(line);
    if (state_ == State::open && ++shown_ == limit_) end(State::limit_reached);
}

void Output::remark(const std::string& line) {
    const std::lock_guard lock(mutex_);
    if (state_ == State::open) write(line);
}

// Each line is flushed: whoever reads a pipe sees an event when it comes.
void Output::write(const std::string& line) {
    int error = 0;
    const auto put = [&] {
        const bool written =
            fwrite(line.data(), 1, line.size(), file_.get()) == line.size() && fflush(file_.get()) == 0;
        // The reason is kept before any other call can change it.
        if (!written) error = errno;
    };
    // The progress line and the output may share the terminal.
    terminal_ ? console::above_progress(put) : put();
    if (error == EPIPE) return end(State::closed);
    if (error == 0) return;
    error_ = fmt::format("cannot write the output {}: {}", path_, strerror(error));
    end(State::failed);
}

void Output::end(State state) {
    // The caller holds the lock, so the callback must not ask this object.
    state_ = state;
    on_end_();
}

// A pipe whose readers are gone says so without being asked for anything.
void Output::look() {
    const std::lock_guard lock(mutex_);
    pollfd pipe{fileno(file_.get()), 0, 0};
    if (state_ == State::open && poll(&pipe, 1, 0) == 1 && (pipe.revents & POLLERR) != 0) end(State::closed);
}

Output::State Output::state() const {
    const std::lock_guard lock(mutex_);
    return state_;
}

uint64_t Output::shown() const {
    const std::lock_guard lock(mutex_);
    return shown_;
}

std::string Output::error() const {
    const std::lock_guard lock(mutex_);
    return error_;
}

}  // namespace zelhost
