#include "host/lib/overrides.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

#define OVERRIDE extern "C" __attribute__((visibility("default")))

namespace {

using namespace std::chrono_literals;

namespace clocks = zelhost::clocks;

// The plug-in looks for its flag files below this path.
constexpr std::string_view kFlagFolder = "/root/kq-agent/";

// Constants at first: the loader and the sanitizers may call the functions below before any constructor has run.
std::atomic<const char*> g_flag_folder{nullptr};
std::atomic<const char* (*)(const char*, const char*)> g_replacement{nullptr};
std::atomic<uint64_t> g_alarm_sleeps{0};
std::atomic<uint64_t> g_trace_sleeps{0};
std::atomic<uint64_t> g_longest_us{0};

// Called on the thread that sleeps. Its name tells which worker it is.
void count_sleep(uint32_t microseconds) {
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    if (strcmp(name, "zelreshdl_alarm") == 0) ++g_alarm_sleeps;
    if (strcmp(name, "zelreshdl_trc") == 0) {
        // Only the trace worker writes this number.
        g_longest_us = std::max<uint64_t>(g_longest_us, microseconds);
        ++g_trace_sleeps;
    }
}

// Set before main, so that every thread meets the same clocks.
const bool g_clocks_set = [] {
    clocks::stand_still(clocks::whole_seconds, 1'700'000'000s);
    clocks::set_longest_sleep(1ms);
    clocks::watch_sleeps(count_sleep);
    return true;
}();

std::string redirected(const char* path) {
    const char* folder = g_flag_folder;
    if (folder == nullptr || !std::string_view(path).starts_with(kFlagFolder)) return path;
    return std::string(folder) + "/" + (path + kFlagFolder.size());
}

}  // namespace

OVERRIDE FILE* fopen(const char* path, const char* mode) {
    // The C library's own function is not used: it could not be found without allocating.
    const std::string real = redirected(path);
    const auto replacement = g_replacement.load();
    const char* const opened = replacement == nullptr ? real.c_str() : replacement(real.c_str(), mode);
    if (opened == nullptr) return nullptr;
    int flags = strchr(mode, '+') != nullptr ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    if (mode[0] != 'r') flags |= O_CREAT | (mode[0] == 'a' ? O_APPEND : O_TRUNC);
    const int fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, opened, flags, 0644));
    return fd < 0 ? nullptr : fdopen(fd, mode);
}

OVERRIDE int open(const char* path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    // Only a call that may make a file has a mode.
    const int mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(more, int) : 0;
    va_end(more);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, redirected(path).c_str(), flags, mode));
}

OVERRIDE int access(const char* path, int mode) noexcept {
    return static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, redirected(path).c_str(), mode));
}

OVERRIDE int faccessat(int folder, const char* path, int mode, int) noexcept {
    return static_cast<int>(syscall(SYS_faccessat, folder, redirected(path).c_str(), mode));
}

namespace zelhost::overrides {

// The copy stays: the functions above may be called up to the end of the process.
void redirect_flag_folder(const std::string& folder) { g_flag_folder = strdup(folder.c_str()); }

void replace_files(const char* (*replacement)(const char* path, const char* mode)) { g_replacement = replacement; }

uint64_t alarm_worker_sleeps() { return g_alarm_sleeps; }
uint64_t trace_worker_sleeps() { return g_trace_sleeps; }
uint64_t longest_trace_worker_sleep_us() { return g_longest_us; }

}  // namespace zelhost::overrides
