#include "longrun/sweep_session.h"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include "host/lib/overrides.h"
#include "longrun/failing_calls.h"
#include "standin/lumutil/log_tap.h"
#include "standin/scripted/scripted_host.h"
#include "standin/zelbpmgr/zelbpmgr_host.h"
#include "standin/zelds/zelds_host.h"

namespace fs = std::filesystem;

namespace sweep {
namespace {

// A run takes less than a second. A machine that is busy gets more time; beyond this it is a hang.
constexpr auto kDeadline = 40s;
// How long a marker may take before it counts as lost.
constexpr auto kMarkerPatience = 150ms;

constexpr const char* kCaptureFlag = "/reshdlproto_flag";
constexpr const char* kManager = "/reshdl/lib/libzelbpmgr.so";

Session* g_session = nullptr;  // for the callbacks, which come without a context

// A system call of its own: usleep is overridden in this program.
void pause() {
    // 50 microseconds: short beside a step.
    const timespec time{0, 50'000};
    syscall(SYS_nanosleep, &time, nullptr);
}

// Threads of this process whose names begin so. The plug-in's workers have names.
size_t plugin_threads(const char* begins) {
    size_t found = 0;
    for (const auto& task : fs::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        found += name.starts_with(begins) ? 1 : 0;
    }
    return found;
}

// The figures of a report as text. Costs and predictions depend on the machine, so they are left out.
std::string numbers_of(const std::string& report) {
    std::string text;
    for (size_t at = 0; (at = report.find("\": ", at)) != std::string::npos; at += 3) {
        const size_t begin = report.rfind('"', at - 1) + 1;
        const std::string key = report.substr(begin, at - begin);
        const bool cost = key.find("ost") != std::string::npos || key.find("Predict") != std::string::npos;
        if (isdigit(static_cast<unsigned char>(report[at + 3])) != 0 && !cost)
            text += "," + key + "=" + std::to_string(atoll(report.c_str() + at + 3));
    }
    return text;
}

}  // namespace

Session::Session(std::string root, const std::string& flags) : root_(std::move(root)), flags_(flags) {
    g_session = this;
    // The workers sleep between two looks at their queues; shorter sleeps make a run short.
    zelhost::overrides::set_longest_sleep(50us);
    // Long enough to need a block of its own, so that its allocation can fail, too.
    setenv("agentid", "an-agent-id-that-needs-a-block-of-its-own", 1);
    zelhost::overrides::redirect_flag_folder(flags_);
    zelhost::overrides::replace_files(failing_calls_file);
    atexit(on_exit);
    zel_log_set_tap(
        [](void* self, int32_t level, const char* text) { static_cast<Session*>(self)->on_line(level, text); }, this);
    publish_ = reinterpret_cast<lummb_publish_t>(symbol("reshdl/lib/liblummb.so", "lummb_publish"));
    get_counts_ = reinterpret_cast<lummb_get_counts_t>(symbol("reshdl/lib/liblummb.so", "lummb_get_counts"));
    const auto subscribe = reinterpret_cast<lummb_subscribe_t>(symbol("reshdl/lib/liblummb.so", "lummb_subscribe"));
    // All that the plug-in sends.
    for (const uint32_t id : {769u, 770u, 771u, 2305u})
        subscribe(id, [](void* self, MbFrame::IEvent* event) { static_cast<Session*>(self)->on_event(event); }, this);
}

// The plug-in may still log, but not into an object that has gone.
Session::~Session() {
    zel_log_set_tap(nullptr, nullptr);
    g_session = nullptr;
}

void* Session::symbol(const std::string& library, const char* name) const {
    // Never closed: the addresses are used until the process ends.
    void* const handle = dlopen((root_ + "/" + library).c_str(), RTLD_NOW);
    void* const address = handle == nullptr ? nullptr : dlsym(handle, name);
    if (address != nullptr) return address;
    printf("wrong no %s: %s\n", name, dlerror());
    fflush(stdout);
    // Without exit handlers: they would run into the plug-in in a state that is not under test.
    _exit(4);
}

// Looked up at each call, since the library is loaded in a step of its own.
template <class F>
F* Session::plugin_function(const char* name) const {
    return reinterpret_cast<F*>(dlsym(plugin_, name));
}
#define PLUGIN(name) plugin_function<decltype(name)>(#name)

void Session::arm(uint64_t number) {
    armed_ = true;
    failing_calls_begin(number, STDOUT_FILENO);
}

void Session::disarm() {
    failing_calls_end();
    armed_ = false;
}

void Session::load() {
    plugin_ = dlopen((root_ + "/reshdl/bin/libzelreshdl.so").c_str(), RTLD_NOW);
    output(plugin_ != nullptr ? "loaded" : "not loaded");
    if (plugin_ != nullptr) return;
    printf("wrong the library was not loaded: %s\n", dlerror());
    fflush(stdout);
    _exit(4);
}

void Session::start() {
    // One failure may cost one start. The second one must work as if it were the first.
    int result = PLUGIN(plugin_init)();
    output("init:" + std::to_string(result));
    if (result != 0) {
        result = PLUGIN(plugin_init)();
        output("init:" + std::to_string(result));
    }
    running_ = result == 0;
    if (running_) return;
    printf("wrong the second try of a start answers %d\n", result);
    fflush(stdout);
    _exit(4);
}

void Session::stop() {
    running_ = false;
    stopped_once_ = true;
    output("uninit:" + std::to_string(PLUGIN(plugin_uninit)()));
}

void Session::stop_held() {
    running_ = false;
    stopped_once_ = true;
    // The stop joins the workers, and the trace worker is held in the trace module. So the stop runs beside, and the
    // trace goes on when only the trace worker is left.
    std::thread stopping([this] { output("uninit:" + std::to_string(PLUGIN(plugin_uninit)())); });
    // The stop joins the alarm worker first, so from here on it waits for the trace worker.
    wait_until("the alarm worker ends", [] { return plugin_threads("zelreshdl_alarm") == 0; });
    hold(false);
    stopping.join();
}

void Session::send(uint32_t id, std::string_view data) {
    if (const int32_t answer = publish_(id, data.data(), data.size()); answer != LUMMB_OK)
        output("not published:" + std::to_string(answer));
}

void Session::send_dns(const ST_DNS_NATIVE& record, const char* query_name) {
    static const auto publish =
        reinterpret_cast<lummb_publish_dns_t>(symbol("reshdl/lib/liblummb.so", "lummb_publish_dns"));
    if (const int32_t answer = publish(&record, query_name); answer != LUMMB_OK)
        output("not published:" + std::to_string(answer));
}

void Session::answer(uint32_t function, const std::vector<Answer>& answers) {
    const std::lock_guard lock(mutex_);
    // Replaces what was left of earlier answers; without answers every call succeeds.
    answers_[function].assign(answers.begin(), answers.end());
}

void Session::hold(bool held) {
    const std::lock_guard lock(mutex_);
    held_ = held;
}

void Session::next_trace_takes(std::chrono::milliseconds time) {
    const std::lock_guard lock(mutex_);
    trace_time_ = time;
}

void Session::advance(std::chrono::milliseconds by) { zelhost::overrides::advance(by); }

void Session::file_trace(const char* path, const char* key, int kind) {
    output("file_trace:" + std::to_string(PLUGIN(reshdl_file_trace)(on_callback, path, key, kind, 7)));
}

void Session::process_trace(const char* data) {
    const auto size = static_cast<uint32_t>(strlen(data));
    output("process_trace:" + std::to_string(PLUGIN(reshdl_process_trace)(on_callback, data, size, 8)));
}

void Session::configure(const std::string& text) {
    const auto size = static_cast<uint32_t>(text.size());
    // Twice if it was refused, because the steps behind need the limits.
    const auto call = [&] {
        const int result = PLUGIN(plugin_configuration_update)(text.c_str(), size);
        output("configure:" + std::to_string(result));
        return result == 0;
    };
    if (!call()) call();
}

void Session::reset_begin() { PLUGIN(reset_db_begin)(); }

void Session::reset_end() { PLUGIN(reset_db_end)(); }

void Session::report(bool figures) {
    // The callback of the manager has one context pointer for both.
    struct Request {
        Session& session;
        bool figures;
    } request{*this, figures};
    const auto take = [](void* context, const char* module, int32_t result, const char* text) {
        const auto& asked = *static_cast<Request*>(context);
        const std::string numbers = numbers_of(text);
        asked.session.output(std::string("report:") + module + ":" + std::to_string(result) + ":" +
                             (asked.figures ? numbers : std::to_string(std::ranges::count(numbers, '='))));
    };
    // Closed again below, so that the balance can show whether the last stop let the library go.
    void* const manager = dlopen((root_ + kManager).c_str(), RTLD_NOW);
    const auto collect = reinterpret_cast<zelbpmgr_collect_t>(dlsym(manager, "zelbpmgr_collect"));
    // Room enough for each report, so that only memory can keep it from being given.
    collect(ZELBPMGR_OWN_THREAD, 4096, take, &request);
    dlclose(manager);
}

void Session::capture(bool on) {
    captures_ = on;
    const std::string flag = flags_ + kCaptureFlag;
    if (on)
        std::ofstream(flag) << "1";
    else
        fs::remove(flag);
}

// One output for each copy: its kind, its size and the size of the file beside it. A lost copy takes no number, so the
// number is left out.
void Session::take_copies() {
    for (const auto& entry : fs::directory_iterator(flags_)) {
        const fs::path& file = entry.path();
        if (file.stem().extension() != ".data") continue;
        const fs::path beside = file.string() + ".size";
        std::error_code missing;
        const auto size_beside = fs::file_size(beside, missing);
        output("copy:" + file.stem().string() + ":" + std::to_string(entry.file_size()) + ":" +
               std::to_string(missing ? 0 : size_beside));
        fs::remove(beside);
        fs::remove(file);
    }
}

void Session::output(const std::string& text) {
    const std::lock_guard lock(mutex_);
    outputs_.push_back(text);
}

void Session::on_line(int32_t level, const char* text) {
    // The prefix holds numbers of lines and of the process; what is compared is the text behind it.
    const char* const place = strstr(text, ")] ");
    const std::string line = place == nullptr ? text : place + 3;
    const std::lock_guard lock(mutex_);
    // The marker has come through the alarm worker.
    if (line.starts_with("ignore handle: 2304")) ++ignored_;
    // ERROR is 0 and WARN is 1.
    if (level > 1) return;
    ++bad_lines_;
    // A line goes out as one line of the protocol, in which '|' separates.
    lines_.push_back(line.substr(0, 200));
    std::ranges::replace_if(lines_.back(), [](char c) { return c == '\n' || c == '|'; }, ' ');
}

void Session::on_event(MbFrame::IEvent* event) {
    const uint32_t id = event->GetEventId();
    uint64_t size = 0;
    std::string guid = "with";
    if (id == 2305) {
        ST_MEM_DETECT_INFO check{};
        memcpy(&check, event->GetNativeEvent(), sizeof check);
        // The sum of the texts stands for all of them: a text that is missing changes it.
        for (const char* text : {check.pszPath, check.pszRepository, check.pszMounts, check.pszUser, check.pszNamespace,
                                 check.pszImageId, check.pszContainerId, check.pszImageTag, check.pszImageName,
                                 check.pszContainerName, check.pszCapability, check.pszPortsBinding})
            size += text == nullptr ? 0 : strlen(text) + 1;
    } else {
        ST_PB_EVENT native{};
        memcpy(&native, event->GetNativeEvent(), sizeof native);
        size = native.uSize;
        // A GUID is random or a document's, so only its presence is compared.
        if (native.pszGuid == nullptr) guid = "without";
        if (native.uEventId != id) guid = "of-another-id";
    }
    output(std::to_string(id) + ":" + std::to_string(size) + (guid == "with" ? "" : ":guid-" + guid));
}

int Session::on_callback(int code, uint32_t, const char*, uint32_t size) {
    g_session->output("callback" + std::to_string(code) + ":" + std::to_string(size));
    return 1;
}

// The trace module of the run. Its results are copies of the input, so that a size tells which message it was.
int32_t Session::scripted_call(uint32_t function, const char* input, uint32_t input_size, char** result,
                               uint32_t* result_size) {
    std::unique_lock lock(mutex_);
    ++calls_[function];
    if (function == ZELTRC_RELEASE) {
        // A null buffer is allowed; a foreign one is a fault of the plug-in, and its line makes the step differ.
        if (*result != nullptr && results_.erase(*result) == 0) outputs_.push_back("released what was not handed out");
        lock.unlock();
        free(*result);
        return 0;
    }
    if (function == ZELTRC_CREATE) {
        // The lock is open while it waits, because other functions of the module go on being called.
        while (held_) {
            lock.unlock();
            pause();
            lock.lock();
        }
        // The plug-in measures the time of a trace with the clock that is moved here.
        zelhost::overrides::advance(std::exchange(trace_time_, 0ms));
    }
    auto& answers = answers_[function];
    const Answer given = answers.empty() ? Answer{} : answers.front();
    if (!answers.empty()) answers.pop_front();
    // Init and uninit come without a result.
    if (result_size == nullptr) return given.code;
    *result = nullptr;
    *result_size = 0;
    if (!given.result) return given.code;
    // This call comes from the program and is not failed.
    *result = static_cast<char*>(malloc(input_size + 1));
    memcpy(*result, input, input_size);
    *result_size = input_size;
    results_.insert(*result);
    return given.code;
}

lummb_counts Session::bus() const {
    lummb_counts counts{};
    get_counts_(&counts);
    return counts;
}

// Ends the process at once. A thread of the plug-in hangs, so no orderly end is possible.
void Session::hang(const char* what) {
    // What the log said so far goes out as well; it most often names the place.
    printf("wrong hang in step '%s': %s\n", step_.c_str(), what);
    print_lines();
    _exit(3);
}

// What the log said since the last step.
void Session::print_lines() {
    const std::lock_guard lock(mutex_);
    for (const auto& line : lines_) printf("line %s\n", line.c_str());
    fflush(stdout);
}

void Session::on_exit() {
    if (g_session == nullptr) return;
    printf("ended %s\n", g_session->step_.c_str());
    g_session->print_lines();
}

void Session::wait_until(const char* what, const std::function<bool()>& done) {
    const auto deadline = zelhost::overrides::real_now() + kDeadline;
    while (!done()) {
        // A real clock, because the plug-in's own is moved by the scenario.
        if (zelhost::overrides::real_now() >= deadline) hang(what);
        pause();
    }
}

void Session::wait_for_bus() {
    wait_until("the bus comes to rest", [this] {
        const lummb_counts now = bus();
        return now.waiting == 0 && now.sending == 0;
    });
}

// An ignored event leaves the alarm worker when everything before it has been worked on. That event may itself be what
// a failure costs. Then there is an ERROR line, and another event is sent.
void Session::come_to_rest(Rest rest) {
    const auto counts = [this] {
        const std::lock_guard lock(mutex_);
        return std::pair(ignored_, bad_lines_);
    };
    const auto deadline = zelhost::overrides::real_now() + kDeadline;
    for (bool through = false; !through;) {
        const auto before = counts();
        send(2304, "marker");
        const auto patience = zelhost::overrides::real_now() + kMarkerPatience;
        for (;;) {
            const auto now = counts();
            const auto time = zelhost::overrides::real_now();
            through = now.first > before.first;
            if (through) break;
            if (time >= deadline) hang("an ignored event does not come through");
            if (armed_ && time >= patience && now.second > before.second && bus().waiting == 0) break;
            pause();
        }
    }
    wait_for_bus();
    // After the marker the worker still looks at the age of the cache. On a slow machine the first marker may only have
    // been late, and the second one must not end the next step too early.
    worker_rests("the alarm worker comes to rest", zelhost::overrides::alarm_worker_sleeps);
    wait_for_bus();
    if (rest == Rest::alarm_worker) return;
    trace_worker_rests();
    wait_for_bus();
}

// Two sleeps: the first may have begun before the last job came, the second shows that its queues were empty.
void Session::worker_rests(const char* what, uint64_t (*sleeps)()) {
    const uint64_t before = sleeps();
    wait_until(what, [=] { return sleeps() >= before + 2; });
}

void Session::trace_worker_rests() {
    worker_rests("the trace worker comes to rest", zelhost::overrides::trace_worker_sleeps);
}

void Session::step(const std::string& name, const char* group, const std::function<void()>& action, Rest rest) {
    step_ = name;
    action();
    if (running_ && !stopped_once_) come_to_rest(rest);
    // After the first stop no events come, so there is no marker either.
    if (running_ && stopped_once_) trace_worker_rests();
    if (captures_) take_copies();
    std::vector<std::string> outputs;
    std::vector<std::string> lines;
    {
        const std::lock_guard lock(mutex_);
        outputs.swap(outputs_);
        lines.swap(lines_);
    }
    // The two workers report in any order.
    std::ranges::sort(outputs);
    printf("%s %s|%s|", armed_ ? "armed" : "clean", name.c_str(), group);
    for (const auto& text : outputs) printf("%s ", text.c_str());
    printf("|%lu\n", failing_calls_counted());
    for (const auto& line : lines) printf("line %s\n", line.c_str());
    fflush(stdout);
}

// The balance: what is still alive, held, running or loaded at the end.
void Session::finish() {
    wait_for_bus();
    // The ledger tells how often the data store was loaded and unloaded.
    const auto ds_counts =
        reinterpret_cast<zelds_get_counts_t>(symbol("reshdl/lib/libzelcount.so", "zelds_get_counts"));
    zelds_counts ds{};
    ds_counts(&ds);
    const lummb_counts now = bus();
    const std::lock_guard lock(mutex_);
    printf(
        "end calls=%lu failed=%d alive=%lu late=%lu frames=%lu threads=%zu modules=%ld inits=%ld results=%zu "
        "manager=%d\n",
        failing_calls_counted(), failing_calls_failed() ? 1 : 0, now.alive, now.late, now.frames,
        plugin_threads("zelreshdl_"), static_cast<long>(ds.loads - ds.unloads),
        static_cast<long>(calls_[ZELTRC_INIT] - calls_[ZELTRC_UNINIT]), results_.size(),
        dlopen((root_ + kManager).c_str(), RTLD_NOW | RTLD_NOLOAD) != nullptr ? 1 : 0);
    fflush(stdout);
}

}  // namespace sweep

int32_t scripted_call(uint32_t function, const char* input, uint32_t input_size, char** result, uint32_t* result_size) {
    return sweep::g_session->scripted_call(function, input, input_size, result, result_size);
}

// The bus is the stand-in's; the scripted library never stands in its place here.
int32_t scripted_class_object(void**) { return -1; }
