#include "host/record/outside.h"

#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>

#include "host/lib/clocks.h"
#include "host/lib/failure.h"
#include "host/lib/libraries.h"
#include "platform/zel_support.h"
#include "platform/zel_trc.h"

#define OVERRIDE extern "C" __attribute__((visibility("default")))

namespace zelhost {
namespace {

using record::Question;
using Answer = Outside::Answer;

// Whose questions go where. The addresses are those of the plug-in's segments, and 0 until it asks for the first time.
// These are global because the functions at the end of this file have no object to belong to.
std::atomic<Outside*> g_outside{nullptr};
std::string g_plugin;  // its file
std::atomic<uintptr_t> g_plugin_begin{0}, g_plugin_end{0};

// Called by the loader for each library of the process. A result other than 0 ends the walk.
int note_if_plugin(dl_phdr_info* library, size_t, void*) {
    std::error_code error;
    if (!std::filesystem::equivalent(library->dlpi_name, g_plugin, error)) return 0;
    // A library is loaded in several segments. From the first to the last of them is taken as its
    // own.
    uintptr_t begin = UINTPTR_MAX;
    uintptr_t end = 0;
    for (int i = 0; i < library->dlpi_phnum; ++i) {
        const auto& segment = library->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD) continue;
        const uintptr_t at = library->dlpi_addr + segment.p_vaddr;
        begin = std::min(begin, at);
        end = std::max(end, at + segment.p_memsz);
    }
    g_plugin_begin = begin;
    g_plugin_end = end;
    return 1;
}

// Null when the answer is the outside's own business. The plug-in asks for the first time while it is being loaded, on
// the thread that loads it.
Outside* outside_of(const void* caller) {
    Outside* const outside = g_outside;
    if (outside == nullptr) return nullptr;
    // The first question may come before dlopen has returned. So the addresses are looked up here
    // and not by the guard.
    if (g_plugin_end == 0) dl_iterate_phdr(note_if_plugin, nullptr);
    const auto address = reinterpret_cast<uintptr_t>(caller);
    return address >= g_plugin_begin && address < g_plugin_end ? outside : nullptr;
}

// --- clocks and sleeps ---

// The clocks of the process show their time to this object before the caller gets it.
class ClockQuestions final : public clocks::Watch {
public:
    int64_t monotonic_ns(int64_t shown, const void* caller) override { return ask(record::MONOTONIC, shown, caller); }
    int64_t seconds(int64_t shown, const void* caller) override { return ask(record::SECONDS, shown, caller); }
    uint64_t ticks(uint64_t shown, const void* caller) override {
        return static_cast<uint64_t>(ask(record::TICKS, static_cast<int64_t>(shown), caller));
    }
    void sleep(uint32_t microseconds, const void* caller) override {
        Outside* const outside = outside_of(caller);
        if (outside == nullptr) return clocks::sleep(microseconds);
        // How long a sleep takes is no answer. It is real in a recording, and the player decides in
        // a replay.
        outside->ask(record::SLEEP, [microseconds] {
            clocks::sleep(microseconds);
            return Answer{};
        });
    }

private:
    // Any caller but the plug-in sees the clock as it is shown.
    static int64_t ask(Question question, int64_t shown, const void* caller) {
        Outside* const outside = outside_of(caller);
        return outside == nullptr ? shown : outside->ask(question, [shown] { return Answer{shown}; }).number;
    }
};
ClockQuestions g_clock_questions;

// --- the support library ---

// A function of the support library that the open session has loaded, looked up once for each library.
template <class Pointer>
class SupportFunction {
public:
    explicit constexpr SupportFunction(const char* name) : name_(name) {}

    // A program may open one session after the other, each with a library of its own. So the
    // address is kept together with the library that it is from.
    template <class... Arguments>
    auto operator()(Arguments... arguments) {
        void* const library = support_library();
        if (library != library_.load(std::memory_order_acquire)) {
            // Without a session the function is looked for in the libraries behind the program.
            function_ = reinterpret_cast<Pointer>(dlsym(library != nullptr ? library : RTLD_NEXT, name_));
            library_.store(library, std::memory_order_release);
        }
        return function_.load()(arguments...);
    }

private:
    const char* const name_;
    std::atomic<void*> library_{this};  // no library's handle
    std::atomic<Pointer> function_{nullptr};
};
// The functions of the support library that the program stands before.
SupportFunction<decltype(&zel_mutex_lock)> g_mutex_lock("zel_mutex_lock");
SupportFunction<decltype(&get_agent_path)> g_agent_path("get_agent_path");
SupportFunction<decltype(&zel_dll_get_addr)> g_dll_address("zel_dll_get_addr");

// What the plug-in is told of the file that this thread has asked for last.
// Set by get_agent_path and read by lseek. The plug-in calls both on one thread, one right after
// the other.
thread_local std::optional<int64_t> g_told_size;

// As the plug-in will look at the file: bytes of a file or folder, -1 for what is none or does not open, -2 for one
// that has no size.
int64_t size_of(const char* path) {
    // A named pipe without a writer must not block the plug-in, hence O_NONBLOCK.
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0) return -1;
    struct stat status{};
    const bool known = fstat(descriptor, &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode));
    const int64_t size = known ? lseek(descriptor, 0, SEEK_END) : -1;
    close(descriptor);
    return known && size < 0 ? -2 : size;
}

// --- the trace module ---

// The module's own functions, as the plug-in found them last. Each has a question, and a function that stands in its
// place.
struct TraceFunction {
    const char* name;
    Question question;
    void* stand_in;
    std::atomic<void*> real{nullptr};
};
extern TraceFunction g_trace_functions[7];

// The number of a function is its place in the table below. Stand-ins are plain functions, so each
// knows its number as a template argument.
template <class Pointer>
Pointer real_function(size_t index) {
    return reinterpret_cast<Pointer>(g_trace_functions[index].real.load());
}

// Results that were made here: they are not the module's to release.
// Results of the player are allocated here. The plug-in gives them back like those of the module,
// on any thread.
std::mutex g_results_mutex;
std::set<char*> g_results;

// The plug-in reads no more than the size. The one byte more makes an empty result a pointer that
// is not null.
char* make_result(const std::string& data) {
    auto* const result = static_cast<char*>(malloc(data.size() + 1));
    // Leaves by an exception only when there is no memory.
    if (result == nullptr) throw std::bad_alloc();
    memcpy(result, data.data(), data.size());
    const std::lock_guard lock(g_results_mutex);
    g_results.insert(result);
    return result;
}

// The module itself is asked at most once, and its own buffer goes on then.
template <size_t index>
int32_t work(const char* input, uint32_t input_size, char** result, uint32_t* result_size) {
    // The four functions that make a result have the same arguments.
    const auto real = real_function<trace_event_work_t>(index);
    Outside* const outside = g_outside;
    if (outside == nullptr) return real(input, input_size, result, result_size);
    bool asked = false;
    const Answer answer = outside->ask(g_trace_functions[index].question, [&] {
        asked = true;
        const int32_t code = real(input, input_size, result, result_size);
        // The buffer goes on to the plug-in as it is, so the recorder gets a copy.
        return *result == nullptr ? Answer{code} : Answer{code, std::string(*result, *result_size)};
    });
    // Nothing was asked of the module: the answer comes from the record.
    if (!asked) {
        *result = answer.data ? make_result(*answer.data) : nullptr;
        *result_size = answer.data ? static_cast<uint32_t>(answer.data->size()) : 0;
    }
    return static_cast<int32_t>(answer.number);
}

// The start and the end of the module have no arguments.
template <size_t index>
int32_t call() {
    const auto real = real_function<trace_event_init_t>(index);
    Outside* const outside = g_outside;
    if (outside == nullptr) return real();
    return static_cast<int32_t>(
        outside->ask(g_trace_functions[index].question, [real] { return Answer{real()}; }).number);
}

int32_t release(char* buffer) {
    // A buffer that is not of this file is the module's own.
    {
        const std::lock_guard lock(g_results_mutex);
        if (g_results.erase(buffer) > 0) {
            free(buffer);
            return 0;
        }
    }
    return real_function<trace_event_release_t>(2)(buffer);
}

template <class Function>
void* address(Function* function) {
    return reinterpret_cast<void*>(function);
}

// The place of a row is the number that its function has above. A release asks nothing.
TraceFunction g_trace_functions[] = {
    {"trace_event_init", record::TRACE_INIT, address(call<0>)},
    {"trace_event_uninit", record::TRACE_UNINIT, address(call<1>)},
    {"trace_event_release", {}, address(release)},
    {"trace_event_process_completion", record::TRACE_COMPLETION, address(work<3>)},
    {"trace_event_create_by_alert", record::TRACE_CREATE, address(work<4>)},
    {"trace_event_expand_from_mgr", record::TRACE_EXPAND, address(work<5>)},
    {"trace_event_coordinate_dispose_trc", record::TRACE_DISPOSE, address(work<6>)},
};

// --- GUIDs ---

using Guid = unsigned char[16];

// The library is opened once more and stays, so that its address does.
void real_guid(Guid& out) {
    // The program's own uuid_generate stands before the library's, so the library is asked by its
    // handle.
    static const auto generate = [] {
        void* const library = dlopen("libuuid.so.1", RTLD_NOW);
        return library == nullptr ? nullptr
                                  : reinterpret_cast<void (*)(unsigned char*)>(dlsym(library, "uuid_generate"));
    }();
    if (generate != nullptr) generate(out);
}

}  // namespace

OutsideGuard::OutsideGuard(const std::filesystem::path& plugin, Outside& outside) {
    g_plugin = plugin.string();
    // Each session loads the plug-in anew, perhaps at another address.
    g_plugin_begin = g_plugin_end = 0;
    g_outside = &outside;
    // The clocks come last: from here on questions may be asked, and the object must be in place.
    clocks::set_watch(&g_clock_questions);
}

OutsideGuard::~OutsideGuard() {
    clocks::set_watch(nullptr);
    g_outside = nullptr;
}

record::Role role_of_this_thread() {
    static thread_local const record::Role role = [] {
        // A thread keeps its role for life, so the answer is found once.
        if (getpid() == gettid()) return record::HOST;
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        if (strcmp(name, "lummb_dispatch") == 0) return record::BUS;
        if (strcmp(name, "zelreshdl_alarm") == 0) return record::ALARM;
        return strcmp(name, "zelreshdl_trc") == 0 ? record::TRACE : record::OTHER;
    }();
    return role;
}

}  // namespace zelhost

using namespace zelhost;

OVERRIDE int32_t zel_mutex_lock(void* mutex) {
    Outside* const outside = outside_of(__builtin_return_address(0));
    if (outside == nullptr) return g_mutex_lock(mutex);
    return static_cast<int32_t>(outside->ask(record::LOCK, [mutex] { return Answer{g_mutex_lock(mutex)}; }).number);
}

// The functions of the trace module are replaced where the plug-in looks them up. It binds the module when it has the
// last one, and from then on its workers see it.
OVERRIDE int32_t zel_dll_get_addr(void* module, const char* name, void** out) {
    const int32_t result = g_dll_address(module, name, out);
    Outside* const outside = outside_of(__builtin_return_address(0));
    if (result < 0 || outside == nullptr) return result;
    for (TraceFunction& function : g_trace_functions) {
        if (strcmp(function.name, name) != 0) continue;
        function.real = *out;
        *out = function.stand_in;
        // This is the function that the plug-in looks up last, by the order of its own table.
        if (&function == std::end(g_trace_functions) - 1) outside->ask(record::TRACE_FOUND, [] { return Answer{}; });
    }
    return result;
}

// The plug-in asks for the path of a file whose size it wants.
OVERRIDE int32_t get_agent_path(const char* path, uint32_t length, int32_t init_pid, char* out, uint32_t size) {
    const int32_t result = g_agent_path(path, length, init_pid, out, size);
    Outside* const outside = outside_of(__builtin_return_address(0));
    // A buffer of size 0 holds no path that could be looked at.
    if (outside == nullptr || size == 0) return result;
    const int64_t bytes = outside->ask(record::FILE_SIZE, [out] { return Answer{size_of(out)}; }).number;
    // In a recording there is no place, and the plug-in opens the file itself.
    const std::optional<std::string> place = outside->place_of_file(bytes);
    g_told_size = place ? std::optional(bytes) : std::nullopt;
    if (place) snprintf(out, size, "%s", place->c_str());
    return result;
}

// The size of a file is where its end is.
OVERRIDE off_t lseek(int descriptor, off_t offset, int whence) noexcept {
    // A size of -2 means that the seek fails, which the plug-in sees as -1.
    if (g_told_size && outside_of(__builtin_return_address(0)) != nullptr) return std::max<off_t>(*g_told_size, -1);
    return syscall(SYS_lseek, descriptor, offset, whence);
}

OVERRIDE void uuid_generate(unsigned char* out) {
    // The outside is asked for the bytes, so that a record has them and a replay gives them again.
    Outside* const outside = outside_of(__builtin_return_address(0));
    Guid guid{};
    if (outside == nullptr) {
        real_guid(guid);
    } else {
        const Answer answer = outside->ask(record::GUID, [&guid] {
            real_guid(guid);
            return Answer{0, std::string(reinterpret_cast<const char*>(guid), sizeof guid)};
        });
        if (answer.data && answer.data->size() == sizeof guid) memcpy(guid, answer.data->data(), sizeof guid);
    }
    memcpy(out, guid, sizeof guid);
}
