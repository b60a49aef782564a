#include "longrun/failing_allocations.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#define INTERPOSED extern "C" __attribute__((visibility("default")))

namespace {

constexpr std::string_view kPlugin = "libzelreshdl.so";
// They allocate for their caller. This library is among them: its own functions stand innermost on every stack.
constexpr std::string_view kAllocating[] = {"libfailing_allocations.so",
                                            "libc.so",
                                            "libstdc++.so",
                                            "libgcc_s.so",
                                            "libasan.so",
                                            "libubsan.so",
                                            "libcjson.so",
                                            "libm.so",
                                            "libuuid.so",
                                            "libprotobuf-lite.so",
                                            "libjansson.so"};
constexpr int kShownFrames = 40;

std::atomic<bool> g_counting{false};
std::atomic<uint64_t> g_counted{0};
std::atomic<uint64_t> g_number{0};
std::atomic<bool> g_failed{false};
std::atomic<int> g_report{-1};

// Set while this library or a function behind it runs: operator new calls malloc, which must not count again.
__attribute__((tls_model("initial-exec"))) thread_local bool t_inside = false;

struct Inside {
    Inside() { t_inside = true; }
    ~Inside() { t_inside = false; }
};

const char* base_name(const char* path) {
    const char* const slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

const link_map* module_of(uintptr_t pc) {
    dl_find_object found{};
    return _dl_find_object(reinterpret_cast<void*>(pc), &found) == 0 ? found.dlfo_link_map : nullptr;
}

_Unwind_Reason_Code find_owner(_Unwind_Context* context, void* out) {
    const link_map* const module = module_of(_Unwind_GetIP(context) - 1);
    const std::string_view name = module == nullptr ? "" : base_name(module->l_name);
    for (const std::string_view allocating : kAllocating)
        if (name.starts_with(allocating)) return _URC_NO_REASON;
    *static_cast<bool*>(out) = name == kPlugin;
    return _URC_NORMAL_STOP;
}

struct Line {
    char text[4096];
    size_t size;
    int frames;

    void add(std::string_view part) {
        const size_t length = std::min(part.size(), sizeof text - size);
        memcpy(text + size, part.data(), length);
        size += length;
    }
};

_Unwind_Reason_Code show_frame(_Unwind_Context* context, void* out) {
    auto& line = *static_cast<Line*>(out);
    const uintptr_t pc = _Unwind_GetIP(context) - 1;
    const link_map* const module = module_of(pc);
    if (module == nullptr || ++line.frames > kShownFrames) return _URC_NORMAL_STOP;
    const char* const name = base_name(module->l_name);
    char offset[32];
    snprintf(offset, sizeof offset, "+0x%lx", static_cast<unsigned long>(pc - module->l_addr));
    line.add(" ");
    line.add(*name == '\0' ? "host" : name);
    line.add(offset);
    return _URC_NO_REASON;
}

void report_failure(const char* function) {
    Line line{};
    char thread[16] = {};
    prctl(PR_GET_NAME, thread);
    for (const char* part : {"failed ", function, " ", static_cast<const char*>(thread)}) line.add(part);
    _Unwind_Backtrace(show_frame, &line);
    line.add("\n");
    [[maybe_unused]] const ssize_t written = write(g_report, line.text, line.size);
}

// Counts the call if it is the plug-in's; true if it is the one that fails.
bool fails(const char* function) {
    if (!g_counting.load(std::memory_order_relaxed) || t_inside) return false;
    const Inside inside;
    const int saved_errno = errno;
    bool of_plugin = false;
    _Unwind_Backtrace(find_owner, &of_plugin);
    const bool failing = of_plugin && ++g_counted == g_number;
    if (failing) {
        g_failed = true;
        report_failure(function);
    }
    errno = failing ? ENOMEM : saved_errno;
    return failing;
}

// The definition behind this library's own: that of a sanitizer, or of the C or C++ library.
template <class F>
F* next(F*& cached, const char* name) {
    if (cached == nullptr) cached = reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
    return cached;
}
#define NEXT(type, name)               \
    ([] {                              \
        static type* cached = nullptr; \
        return next(cached, name);     \
    }())

using Malloc = void*(size_t);
using Calloc = void*(size_t, size_t);
using Realloc = void*(void*, size_t);
using Aligned = void*(size_t, size_t);
using PosixAligned = int(void**, size_t, size_t);
using New = void*(size_t);
using NewNothrow = void*(size_t, const std::nothrow_t&);
using NewAligned = void*(size_t, std::align_val_t);
using NewAlignedNothrow = void*(size_t, std::align_val_t, const std::nothrow_t&);

template <class F, class... Arguments>
void* guarded_call(F* function, Arguments... arguments) {
    if (t_inside) return function(arguments...);
    const Inside inside;
    return function(arguments...);
}

}  // namespace

INTERPOSED void failing_allocations_begin(uint64_t number, int report) {
    g_number = number;
    g_report = report;
    g_counting = true;
}
INTERPOSED void failing_allocations_end() { g_counting = false; }
INTERPOSED uint64_t failing_allocations_counted() { return g_counted; }
INTERPOSED bool failing_allocations_failed() { return g_failed; }

INTERPOSED void* malloc(size_t size) { return fails("malloc") ? nullptr : NEXT(Malloc, "malloc")(size); }
INTERPOSED void* calloc(size_t count, size_t size) {
    return fails("calloc") ? nullptr : NEXT(Calloc, "calloc")(count, size);
}
INTERPOSED void* realloc(void* block, size_t size) {
    return fails("realloc") ? nullptr : NEXT(Realloc, "realloc")(block, size);
}
INTERPOSED void* aligned_alloc(size_t alignment, size_t size) {
    return fails("aligned_alloc") ? nullptr : NEXT(Aligned, "aligned_alloc")(alignment, size);
}
INTERPOSED int posix_memalign(void** block, size_t alignment, size_t size) {
    return fails("posix_memalign") ? ENOMEM : NEXT(PosixAligned, "posix_memalign")(block, alignment, size);
}

// The forms that throw and those that do not, each for one object and for arrays, plain and aligned.
#define EXPORTED __attribute__((visibility("default")))
EXPORTED void* operator new(size_t size) {
    if (fails("new")) throw std::bad_alloc();
    return guarded_call(NEXT(New, "_Znwm"), size);
}
EXPORTED void* operator new[](size_t size) {
    if (fails("new[]")) throw std::bad_alloc();
    return guarded_call(NEXT(New, "_Znam"), size);
}
EXPORTED void* operator new(size_t size, const std::nothrow_t& tag) noexcept {
    return fails("new(nothrow)") ? nullptr : guarded_call(NEXT(NewNothrow, "_ZnwmRKSt9nothrow_t"), size, tag);
}
EXPORTED void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return fails("new(nothrow)[]") ? nullptr : guarded_call(NEXT(NewNothrow, "_ZnamRKSt9nothrow_t"), size, tag);
}
EXPORTED void* operator new(size_t size, std::align_val_t alignment) {
    if (fails("new")) throw std::bad_alloc();
    return guarded_call(NEXT(NewAligned, "_ZnwmSt11align_val_t"), size, alignment);
}
EXPORTED void* operator new[](size_t size, std::align_val_t alignment) {
    if (fails("new[]")) throw std::bad_alloc();
    return guarded_call(NEXT(NewAligned, "_ZnamSt11align_val_t"), size, alignment);
}
EXPORTED void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t& tag) noexcept {
    return fails("new(nothrow)")
               ? nullptr
               : guarded_call(NEXT(NewAlignedNothrow, "_ZnwmSt11align_val_tRKSt9nothrow_t"), size, alignment, tag);
}
EXPORTED void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t& tag) noexcept {
    return fails("new(nothrow)[]")
               ? nullptr
               : guarded_call(NEXT(NewAlignedNothrow, "_ZnamSt11align_val_tRKSt9nothrow_t"), size, alignment, tag);
}
