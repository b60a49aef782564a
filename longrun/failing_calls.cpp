#include "longrun/failing_calls.h"

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
#include <string_view>

#include "longrun/failing_calls_count.h"

namespace {

constexpr std::string_view kPlugin = "libzelreshdl.so";
// These work for their caller. This library is among them: its own functions stand innermost on every stack.
constexpr std::string_view kForCaller[] = {
    "libfailing_calls.so", "libc.so", "libstdc++.so", "libgcc_s.so",         "libasan.so",    "libubsan.so",
    "libcjson.so",         "libm.so", "libuuid.so",   "libprotobuf-lite.so", "libjansson.so",
};
// Enough to reach the plug-in's function from the depth of protobuf.
constexpr int kShownFrames = 40;

// Atomic, since every thread of the process makes such calls. Constant at load, because calls come before constructors.
std::atomic<bool> g_counting{false};
std::atomic<uint64_t> g_counted{0};
std::atomic<uint64_t> g_number{0};
std::atomic<bool> g_failed{false};
std::atomic<int> g_report{-1};

// The model avoids an allocation for the variable itself.
__attribute__((tls_model("initial-exec"))) thread_local bool t_inside = false;

// No function of the C++ library that may allocate is used from here on.
const char* base_name(const char* path) {
    const char* const slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

// Takes no lock of the loader, so it is safe while the loader allocates.
const link_map* module_of(uintptr_t pc) {
    dl_find_object found{};
    return _dl_find_object(reinterpret_cast<void*>(pc), &found) == 0 ? found.dlfo_link_map : nullptr;
}

// Whose call it is.
struct Owner {
    bool passes_program;
    bool is_plugin;
};

// The return address lies behind the call, perhaps in the next function, so one is taken off.
_Unwind_Reason_Code find_owner(_Unwind_Context* context, void* out) {
    auto& owner = *static_cast<Owner*>(out);
    const link_map* const module = module_of(_Unwind_GetIP(context) - 1);
    const std::string_view name = module == nullptr ? "?" : base_name(module->l_name);
    for (const std::string_view for_caller : kForCaller)
        if (name.starts_with(for_caller)) return _URC_NO_REASON;
    // The program itself has no name among the modules.
    if (owner.passes_program && name.empty()) return _URC_NO_REASON;
    owner.is_plugin = name == kPlugin;
    return _URC_NORMAL_STOP;
}

// A line without memory of its own: there may be none.
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

// Adds one frame to the line.
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

// One write, so that lines of two threads do not mix. The name of the thread tells which worker it was.
void report_failure(const char* function, const char* subject) {
    Line line{};
    char thread[16] = {};
    prctl(PR_GET_NAME, thread);
    const char* const separator = *subject == '\0' ? "" : ":";
    for (const char* part : {"failed ", function, separator, base_name(subject), " ", static_cast<const char*>(thread)})
        line.add(part);
    _Unwind_Backtrace(show_frame, &line);
    line.add("\n");
    [[maybe_unused]] const ssize_t written = write(g_report, line.text, line.size);
}

// Walking the stack is slow, but a run is short, and nothing else tells for whom a library works.
bool is_failing(const char* function, const char* subject, bool passes_program) {
    const failing_calls::Inside inside;
    Owner owner{passes_program, false};
    _Unwind_Backtrace(find_owner, &owner);
    const bool failing = owner.is_plugin && ++g_counted == g_number;
    if (failing) {
        g_failed = true;
        report_failure(function, subject);
    }
    return failing;
}

}  // namespace

namespace failing_calls {

bool& inside() { return t_inside; }

// Never inlined, so that nothing of its frame is in use when the caller jumps to the next function.
__attribute__((noinline)) bool fails(const char* function, int error, const char* subject, Through through) {
    // The common case costs two loads.
    if (!g_counting.load(std::memory_order_relaxed) || t_inside) return false;
    const int saved_errno = errno;
    const bool failing = is_failing(function, subject, through == Through::program);
    errno = failing ? error : saved_errno;
    return failing;
}

// Not through dlsym itself, which this library replaces.
void* next_address(const char* name) {
    using Dlsym = void*(void*, const char*);
    // Without the compiler's guard: the first call may come from an allocation within such a look-up.
    static Dlsym* look_up = nullptr;
    if (look_up == nullptr) look_up = reinterpret_cast<Dlsym*>(dlvsym(RTLD_NEXT, "dlsym", "GLIBC_2.34"));
    return look_up(RTLD_NEXT, name);
}

}  // namespace failing_calls

INTERPOSED void failing_calls_begin(uint64_t number, int report) {
    g_number = number;
    g_report = report;
    g_counting = true;
}
INTERPOSED void failing_calls_end() { g_counting = false; }
INTERPOSED uint64_t failing_calls_counted() { return g_counted; }
INTERPOSED bool failing_calls_failed() { return g_failed; }
