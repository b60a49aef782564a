// The logger. It writes time-stamped lines to standard error or to the file that ZEL_LOG_FILE names, up to the level in
// ZEL_LOG_LEVEL. Every line also goes to the tap.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>

#include "control_bytes.h"
#include "log_tap.h"
#include "platform/zel_support.h"

namespace {

constexpr const char* kLevelNames[] = {"error", "warn", "info", "debug"};

struct Target {
    int fd;
    int32_t level;  // highest that is written
};

int32_t level_named(const char* name) {
    for (int32_t level = ZEL_LOG_ERROR; name != nullptr && level <= ZEL_LOG_DEBUG; ++level)
        if (strcmp(name, kLevelNames[level]) == 0) return level;
    return ZEL_LOG_INFO;
}

int open_target(const char* path) {
    if (path == nullptr || path[0] == '\0') return STDERR_FILENO;
    const int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd >= 0) return fd;
    dprintf(STDERR_FILENO, "lumutil: the log file %s cannot be opened: %s\n", path, strerror(errno));
    return STDERR_FILENO;
}

// The environment is read at the first line, so a program can set it before. The file stays open until the process
// ends.
const Target& target() {
    static const Target instance{open_target(getenv("ZEL_LOG_FILE")), level_named(getenv("ZEL_LOG_LEVEL"))};
    return instance;
}

// Held while a line is written and while the tap runs. So lines do not mix, and no call of a tap is left when it was
// taken off.
std::mutex g_output_mutex;
zel_log_tap_t g_tap;
void* g_tap_context;
// Read without the mutex, so that a line that nobody wants costs two comparisons.
std::atomic<bool> g_tapped;

// A fork waits for the line that is being written. Otherwise the child would have the mutex of a thread that it does
// not have, and its first line would wait for ever.
[[maybe_unused]] const int g_fork_handlers = pthread_atfork([] { g_output_mutex.lock(); },    // before the fork
                                                            [] { g_output_mutex.unlock(); },  // in the parent
                                                            [] { g_output_mutex.unlock(); });

constexpr size_t kStampLength = sizeof "2000-01-01 00:00:00.000 " - 1;

// Fills exactly kStampLength bytes with the local time.
void write_stamp(char* out) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[64] = {};
    const size_t seconds = strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    snprintf(stamp + seconds, sizeof stamp - seconds, ".%03d ", static_cast<int>(now.tv_nsec / 1000000));
    memcpy(out, stamp, kStampLength);
}

// A line that cannot be written is lost: a logger has nobody to tell.
void write_all(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0 && errno != EINTR) return;
        if (written <= 0) continue;
        data += written;
        size -= static_cast<size_t>(written);
    }
}

// `line` begins with room for the stamp; behind it stands the text of this length with its terminator.
void put_line(int32_t level, char* line, size_t length) {
    const bool write_it = level <= target().level;
    // Before the lock: two stamps may be out of order by a moment, but no thread waits while another makes its stamp.
    if (write_it) write_stamp(line);
    const std::lock_guard lock(g_output_mutex);
    char* const text = line + kStampLength;
    if (g_tap != nullptr) g_tap(g_tap_context, level, text);
    if (!write_it) return;
    text[length] = '\n';
    write_all(target().fd, line, kStampLength + length + 1);
}

// Room for a line with its stamp. Most lines fit on the stack; a longer one gets a block.
class LineRoom {
public:
    // False when there is no memory for the block. What fits into the room on the stack is then still there.
    bool grow(size_t length) {
        if (length < size()) return true;
        block_.reset(new (std::nothrow) char[kStampLength + length + 1]);
        if (block_ == nullptr) return false;
        size_ = length + 1;
        return true;
    }
    char* line() { return block_ != nullptr ? block_.get() : stack_; }
    char* text() { return line() + kStampLength; }
    size_t size() const { return size_; }  // for the text and its terminator

private:
    char stack_[2048];
    std::unique_ptr<char[]> block_;
    size_t size_ = sizeof stack_ - kStampLength;
};

// Returns the length of the text, which is cut when there is no memory for all of it.
size_t format_line(LineRoom& room, const char* format, va_list args) {
    // The compiler wants a literal where it knows the function. The format of `own_characters` is made at run time.
    int (*const print)(char*, size_t, const char*, va_list) = vsnprintf;
    va_list again;
    va_copy(again, args);
    const int length = print(room.text(), room.size(), format, args);
    // A format that the C library refuses still says where the line came from.
    size_t size = length < 0 ? zel_str_strlcpy(room.text(), format, room.size()) : static_cast<size_t>(length);
    if (length >= 0 && size >= room.size() && room.grow(size)) print(room.text(), room.size(), format, again);
    va_end(again);
    return std::min(size, room.size() - 1);
}

bool has_control(const char* text, size_t size) {
    for (size_t at = 0; at < size; ++at)
        if (lumutil::is_control(text + at)) return true;
    return false;
}

// The line once more, with another character in the place of each control character of the format: so it differs from
// the line where the program itself has written one. Null when there is none, or no memory.
const char* own_characters(LineRoom& room, const char* format, size_t size, va_list args) {
    char other[512];
    const size_t length = zel_str_strlcpy(other, format, sizeof other);
    if (length >= sizeof other || !has_control(format, length)) return nullptr;
    for (size_t at = 0; at < length; ++at)
        if (lumutil::is_control(format + at)) other[at] = '?';
    return format_line(room, other, args) == size ? room.text() : nullptr;
}

// Writes the line with the control characters of the arguments escaped.
void put_escaped(int32_t level, LineRoom& room, size_t size, const char* own) {
    LineRoom escaped;
    if (escaped.grow(lumutil::escape_controls(room.text(), own, size, nullptr))) {
        put_line(level, escaped.line(), lumutil::escape_controls(room.text(), own, size, escaped.text()));
        return;
    }
    // Without memory for the longer line all of them are blotted out in place.
    for (size_t at = 0; at < size; ++at)
        if (lumutil::is_control(room.text() + at)) room.text()[at] = '?';
    put_line(level, room.line(), size);
}

}  // namespace

int32_t zel_log_output(int32_t level, const char* format, ...) {
    if (level < ZEL_LOG_ERROR || level > ZEL_LOG_DEBUG || format == nullptr) return 0;
    if (level > target().level && !g_tapped.load(std::memory_order_relaxed)) return 0;

    // Callers log between a failed call and their look at errno.
    const int saved_errno = errno;
    LineRoom room;
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const size_t size = format_line(room, format, args);
    if (has_control(room.text(), size)) {
        LineRoom other;
        put_escaped(level, room, size, own_characters(other, format, size, again));
    } else {
        put_line(level, room.line(), size);
    }
    va_end(again);
    va_end(args);
    errno = saved_errno;
    return 0;
}

void zel_log_set_tap(zel_log_tap_t tap, void* context) {
    const std::lock_guard lock(g_output_mutex);
    g_tap = tap;
    g_tap_context = context;
    g_tapped.store(tap != nullptr, std::memory_order_relaxed);
}
