#include "e2e/overrides.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#define OVERRIDE extern "C" __attribute__((visibility("default")))

namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr std::string_view kFlagFolder = "/root/kq-agent/";

// Constants at first: the loader and the sanitizers may call the functions below before any constructor has run.
std::atomic<int64_t> g_moved_ns{0};
std::atomic<int64_t> g_time_ms{1'700'000'000'000};
std::atomic<const char*> g_flag_folder{nullptr};
std::atomic<int64_t> g_stopped_ns{0};  // 0: runs
std::atomic<uint64_t> g_alarm_sleeps{0};
std::atomic<uint64_t> g_sleeps{0};
std::atomic<uint64_t> g_longest_us{0};
std::atomic<long> g_longest_sleep_us{1000};

int64_t real_ns(clockid_t clock) {
    timespec now{};
    syscall(SYS_clock_gettime, clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

bool on_thread(const char* wanted) {
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    return strcmp(name, wanted) == 0;
}

std::string redirected(const char* path) {
    const char* folder = g_flag_folder;
    if (folder == nullptr || !std::string_view(path).starts_with(kFlagFolder)) return path;
    return std::string(folder) + "/" + (path + kFlagFolder.size());
}

}  // namespace

OVERRIDE int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const bool moved = clock == CLOCK_MONOTONIC || clock == CLOCK_REALTIME;
    const int64_t stopped = clock == CLOCK_MONOTONIC ? g_stopped_ns.load() : 0;
    const int64_t base = stopped != 0 && on_thread("zelreshdl_alarm") ? stopped : real_ns(clock);
    const int64_t ns = base + (moved ? g_moved_ns.load() : 0);
    *now = {ns / kSecond, ns % kSecond};
    return 0;
}

OVERRIDE time_t time(time_t* out) noexcept {
    const time_t now = g_time_ms / 1000;
    if (out != nullptr) *out = now;
    return now;
}

OVERRIDE int usleep(useconds_t microseconds) {
    if (on_thread("zelreshdl_alarm")) ++g_alarm_sleeps;
    if (on_thread("zelreshdl_trc")) {
        g_longest_us = std::max<uint64_t>(g_longest_us, microseconds);
        ++g_sleeps;
    }
    const timespec shortened{0, std::min<long>(microseconds, g_longest_sleep_us) * 1000};
    syscall(SYS_nanosleep, &shortened, nullptr);
    return 0;
}

OVERRIDE FILE* fopen(const char* path, const char* mode) {
    int flags = strchr(mode, '+') != nullptr ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    if (mode[0] != 'r') flags |= O_CREAT | (mode[0] == 'a' ? O_APPEND : O_TRUNC);
    const int fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, redirected(path).c_str(), flags, 0644));
    return fd < 0 ? nullptr : fdopen(fd, mode);
}

OVERRIDE int access(const char* path, int mode) noexcept {
    return static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, redirected(path).c_str(), mode));
}

namespace e2e {

void advance(std::chrono::milliseconds by) {
    g_moved_ns += std::chrono::nanoseconds(by).count();
    g_time_ms += by.count();
}

std::chrono::steady_clock::time_point real_now() {
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(real_ns(CLOCK_MONOTONIC)));
}

void set_longest_sleep(std::chrono::microseconds longest) { g_longest_sleep_us = longest.count(); }

void stop_alarm_workers_clock() { g_stopped_ns = real_ns(CLOCK_MONOTONIC) / 1'000'000 * 1'000'000; }

void redirect_flag_folder(const std::string& folder) { g_flag_folder = strdup(folder.c_str()); }

uint64_t alarm_worker_sleeps() { return g_alarm_sleeps; }
uint64_t trace_worker_sleeps() { return g_sleeps; }
uint64_t longest_trace_worker_sleep_us() { return g_longest_us; }

}  // namespace e2e
