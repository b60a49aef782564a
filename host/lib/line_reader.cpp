#include "host/lib/line_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/lib/console.h"
#include "host/lib/failure.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;

// Bytes asked for at once; a pipe gives no more at a time.
constexpr size_t kChunk = 1 << 16;
// How often a file that is followed is looked at.
// A regular file cannot be waited for by a poll, so it is looked at again and again.
constexpr auto kLook = 50ms;

// Without waiting: a named pipe without a writer is waited for where a signal ends the wait.
int open_input(const std::string& path) { return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }

struct stat status_of(int descriptor) {
    struct stat status{};
    fstat(descriptor, &status);
    return status;
}

}  // namespace

// Only a regular file has a size against which progress can be told.
LineReader::LineReader(const std::string& path, Mode mode, const StopSignal& stop)
    : stop_(stop), path_(path), mode_(mode), descriptor_(path == "-" ? STDIN_FILENO : open_input(path)) {
    if (descriptor_ < 0) throw Failure("cannot open the input {}: {}", path, strerror(errno));
    const struct stat status = status_of(descriptor_);
    if (S_ISREG(status.st_mode) && mode == Mode::to_the_end) size_ = static_cast<uint64_t>(status.st_size);
}

// Standard input belongs to the process.
LineReader::~LineReader() {
    if (descriptor_ != STDIN_FILENO) close(descriptor_);
}

// The buffer holds the line that was given out and what was read beyond it. What is searched once is not searched again
// when more comes, so that one line of 200 MB takes one pass. A last line without an end counts.
bool LineReader::next(std::string_view& line) {
    // A signal ends the reading even when lines are still in the buffer.
    if (stop_.requested()) return false;
    size_t searched = used_;
    size_t end;
    while ((end = buffer_.find('\n', searched)) == std::string::npos) {
        // The part that was given out is dropped before more is read. So the buffer holds no more
        // than one line and a piece.
        searched = buffer_.size() - used_;
        buffer_.erase(0, used_);
        used_ = 0;
        const Got got = ended_ ? Got::line_end : fill();
        // The caller sees the same answer as at the end, and asks the signal for the reason.
        if (got == Got::stopped) return false;
        if (got == Got::more) continue;
        // What is left in the buffer is a line without an end.
        end = buffer_.size();
        if (end > 0) break;
        if (ended_) return false;
    }
    line = std::string_view(buffer_).substr(used_, end - used_);
    used_ = std::min(end + 1, buffer_.size());
    ++number_;
    return true;
}

LineReader::Got LineReader::fill() {
    pollfd wanted[] = {{descriptor_, POLLIN, 0}, {stop_.descriptor(), POLLIN, 0}};
    while (poll(wanted, 2, -1) < 0)
        if (errno != EINTR) throw Failure("cannot wait for the input {}: {}", path_, strerror(errno));
    // The signal is asked before the input. A reader that always has something to read ends as
    // well.
    if (wanted[1].revents != 0) return Got::stopped;

    const size_t size = buffer_.size();
    buffer_.resize(size + kChunk);
    const ssize_t got = read(descriptor_, buffer_.data() + size, kChunk);
    buffer_.resize(size + (got > 0 ? static_cast<size_t>(got) : 0));
    // Another reader of the same input was quicker, or a signal came. The loop waits again.
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return Got::more;
    if (got < 0) throw Failure("cannot read the input {}: {}", path_, strerror(errno));
    read_ += static_cast<uint64_t>(got);
    return got > 0 ? Got::more : at_end();
}

// Nothing more at this moment.
LineReader::Got LineReader::at_end() {
    const mode_t type = status_of(descriptor_).st_mode;
    if (mode_ == Mode::follow && S_ISREG(type)) return after_regular_file();
    // A pipe on standard input has no name that could be opened again.
    if (mode_ == Mode::follow && S_ISFIFO(type) && path_ != "-") return after_named_pipe();
    ended_ = true;
    return Got::line_end;
}

// A file that was removed is followed until another has its name. The new one is opened before the old one is asked for
// what was written to it last. One that was cut and has grown again beyond the old place between two looks cannot be
// told from one that has only grown.
LineReader::Got LineReader::after_regular_file() {
    const struct stat status = status_of(descriptor_);
    const off_t place = lseek(descriptor_, 0, SEEK_CUR);
    // More was written between the read and the look.
    if (status.st_size > place) return Got::more;
    if (status.st_size < place) {
        console::say("{} was cut to {} bytes: reading it from its start", path_, status.st_size);
        lseek(descriptor_, 0, SEEK_SET);
        return Got::line_end;
    }
    struct stat named{};
    if (path_ != "-" && stat(path_.c_str(), &named) == 0 &&
        (named.st_dev != status.st_dev || named.st_ino != status.st_ino)) {
        // The other file is opened first. If the old one has grown meanwhile, that part is read
        // before the change.
        const int next = open_input(path_);
        if (next >= 0 && status_of(descriptor_).st_size == place) {
            console::say("{} is another file now: reading that from its start", path_);
            replace(next);
            return Got::line_end;
        }
        if (next >= 0) close(next);
    }
    return stop_.sleep(kLook) ? Got::stopped : Got::more;
}

// A pipe that has had a writer reports its end for good; one that is opened anew waits. The old descriptor is closed
// after that, so that a writer always finds a reader.
LineReader::Got LineReader::after_named_pipe() {
    const int next = open_input(path_);
    if (next < 0) throw Failure("cannot open the input {} again: {}", path_, strerror(errno));
    replace(next);
    return Got::line_end;
}

void LineReader::replace(int descriptor) { close(std::exchange(descriptor_, descriptor)); }

// Of what was given out, not of what was read.
int LineReader::percent() const {
    if (size_ == 0) return -1;
    // In hundredths of the size that the file had when it was opened.
    return static_cast<int>((read_ - (buffer_.size() - used_)) * 100 / size_);
}

}  // namespace zelhost
