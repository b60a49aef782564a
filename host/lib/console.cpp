#include "host/lib/console.h"

#include <errno.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>

namespace zelhost::console {
namespace {

// Lines of several threads do not mix, and each takes the progress line away first, so that it stands below all others.
std::mutex mutex;
std::string shown;  // the progress line, under the mutex

// The sequence goes to the beginning of the line and clears it.
void write_line(const std::string& text) {
    const std::lock_guard lock(mutex);
    if (!shown.empty()) fputs("\r\033[K", stderr);
    shown.clear();
    fputs(text.c_str(), stderr);
}

}  // namespace

void message(const std::string& text) { write_line(std::string(program_invocation_short_name) + ": " + text + "\n"); }

void block(const std::string& text) { write_line(text); }

// The same text again costs no output. A line that wrapped could not be taken away.
void progress(const std::string& whole) {
    // Standard error does not change during a run, so it is asked once.
    static const bool terminal = isatty(STDERR_FILENO) == 1;
    if (!terminal) return;
    // One column is left free, because a full line would wrap on some terminals.
    const std::string text = whole.substr(0, columns(STDERR_FILENO) - 1);
    const std::lock_guard lock(mutex);
    if (text == shown) return;
    fputs(("\r\033[K" + text).c_str(), stderr);
    fflush(stderr);
    shown = text;
}

void above_progress(const std::function<void()>& write) {
    const std::lock_guard lock(mutex);
    if (!shown.empty()) fputs("\r\033[K", stderr);
    // Runs with the lock held. So no other line comes in between.
    write();
    if (!shown.empty()) fputs(shown.c_str(), stderr);
}

size_t columns(int descriptor) {
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace zelhost::console
