#include "host/lib/line_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

// Bytes asked for at once; a pipe gives no more at a time.
constexpr size_t kChunk = 1 << 16;

}  // namespace

// Only a regular file has a size against which progress can be told.
LineReader::LineReader(const std::string& path, const StopSignal& stop)
    : stop_(stop), path_(path), descriptor_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0) throw Failure("cannot open the input {}: {}", path, strerror(errno));
    struct stat status{};
    if (fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode)) size_ = static_cast<uint64_t>(status.st_size);
}

// Standard input belongs to the process.
LineReader::~LineReader() {
    if (descriptor_ != STDIN_FILENO) close(descriptor_);
}

// The buffer holds the line that was given out and what was read beyond it. What is searched once is not searched again
// when more comes, so that one line of 200 MB takes one pass. A last line without an end counts.
bool LineReader::next(std::string_view& line) {
    if (stop_.requested()) return false;
    size_t searched = used_;
    size_t end;
    while ((end = buffer_.find('\n', searched)) == std::string::npos) {
        searched = buffer_.size() - used_;
        buffer_.erase(0, used_);
        used_ = 0;
        if (!ended_ && fill()) continue;
        if (!ended_ || buffer_.empty()) return false;
        end = buffer_.size();
        break;
    }
    line = std::string_view(buffer_).substr(used_, end - used_);
    used_ = std::min(end + 1, buffer_.size());
    ++number_;
    return true;
}

// False at the end, which it notes, and when a signal came.
bool LineReader::fill() {
    pollfd wanted[] = {{descriptor_, POLLIN, 0}, {stop_.descriptor(), POLLIN, 0}};
    while (poll(wanted, 2, -1) < 0)
        if (errno != EINTR) throw Failure("cannot wait for the input {}: {}", path_, strerror(errno));
    if (wanted[1].revents != 0) return false;

    const size_t size = buffer_.size();
    buffer_.resize(size + kChunk);
    const ssize_t got = read(descriptor_, buffer_.data() + size, kChunk);
    buffer_.resize(size + (got > 0 ? static_cast<size_t>(got) : 0));
    if (got < 0) throw Failure("cannot read the input {}: {}", path_, strerror(errno));
    read_ += static_cast<uint64_t>(got);
    ended_ = got == 0;
    return !ended_;
}

// Of what was given out, not of what was read.
int LineReader::percent() const {
    if (size_ == 0) return -1;
    return static_cast<int>((read_ - (buffer_.size() - used_)) * 100 / size_);
}

}  // namespace zelhost
