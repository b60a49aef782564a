#include "console.h"

#include <unistd.h>

#include <cstdio>
#include <mutex>

namespace zel::console {
namespace {

std::mutex mutex;
bool progress_shown = false;  // under the mutex

void write_line(const std::string& text) {
    const std::lock_guard lock(mutex);
    if (progress_shown) fputs("\r\033[K", stderr);
    progress_shown = false;
    fputs(text.c_str(), stderr);
}

}  // namespace

void message(const std::string& text) { write_line("zelhost: " + text + "\n"); }

void block(const std::string& text) { write_line(text); }

void progress(const std::string& text) {
    static const bool terminal = isatty(STDERR_FILENO) == 1;
    if (!terminal) return;
    const std::lock_guard lock(mutex);
    if (text.empty() && !progress_shown) return;
    fputs(("\r\033[K" + text).c_str(), stderr);
    fflush(stderr);
    progress_shown = !text.empty();
}

}  // namespace zel::console
