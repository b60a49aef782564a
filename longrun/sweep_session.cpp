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
#include "standin/scripted/scripted_host.h"
#include "longrun/failing_allocations.h"
#include "standin/lumutil/log_tap.h"
#include "standin/zelbpmgr/zelbpmgr_host.h"
#include "standin/zelds/zelds_host.h"

namespace fs = std::filesystem;

namespace sweep {
namespace {

// A run takes less than a second; a machine that is busy gets time.
constexpr auto kDeadline = 15s;
constexpr auto kMarkerPatience = 150ms;

constexpr const char* kManager = "/reshdl/lib/libzelbpmgr.so";

Session* g_session = nullptr;  // of the call-backs, which come without a context

void pause() {
    const timespec time{0, 50'000};
    syscall(SYS_nanosleep, &time, nullptr);
}

size_t plugin_threads(const char* begins) {
    size_t found = 0;
    for (const auto& task : fs::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        found += name.starts_with(begins) ? 1 : 0;
    }
    return found;
}

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
    zelhost::overrides::set_longest_sleep(50us);
    setenv("agentid", "an-agent-id-that-needs-a-block-of-its-own", 1);
    zelhost::overrides::redirect_flag_folder(flags_);
    zel_log_set_tap(
        [](void* self, int32_t level, const char* text) { static_cast<Session*>(self)->on_line(level, text); }, this);
    publish_ = reinterpret_cast<lummb_publish_t>(symbol("reshdl/lib/liblummb.so", "lummb_publish"));
    get_counts_ = reinterpret_cast<lummb_get_counts_t>(symbol("reshdl/lib/liblummb.so", "lummb_get_counts"));
    const auto subscribe = reinterpret_cast<lummb_subscribe_t>(symbol("reshdl/lib/liblummb.so", "lummb_subscribe"));
    for (const uint32_t id : {769u, 770u, 771u, 2305u})
        subscribe(id, [](void* self, MbFrame::IEvent* event) { static_cast<Session*>(self)->on_event(event); }, this);
}

Session::~Session() { zel_log_set_tap(nullptr, nullptr); }

void* Session::symbol(const std::string& library, const char* name) const {
    void* const handle = dlopen((root_ + "/" + library).c_str(), RTLD_NOW);
    void* const address = handle == nullptr ? nullptr : dlsym(handle, name);
    if (address != nullptr) return address;
    printf("wrong no %s: %s\n", name, dlerror());
    fflush(stdout);
    _exit(4);
}

template <class F>
F* Session::plugin_function(const char* name) const {
    return reinterpret_cast<F*>(dlsym(plugin_, name));
}
#define PLUGIN(name) plugin_function<decltype(name)>(#name)

void Session::arm(uint64_t number) {
    armed_ = true;
    failing_allocations_begin(number, STDOUT_FILENO);
}

void Session::disarm() {
    failing_allocations_end();
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
    std::thread stopping([this] { output("uninit:" + std::to_string(PLUGIN(plugin_uninit)())); });
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
    // Closed again, so that the last stop can be seen to leave the library.
    void* const manager = dlopen((root_ + kManager).c_str(), RTLD_NOW);
    const auto collect = reinterpret_cast<zelbpmgr_collect_t>(dlsym(manager, "zelbpmgr_collect"));
    collect(ZELBPMGR_OWN_THREAD, 4096, take, &request);
    dlclose(manager);
}

void Session::capture(bool on) {
    const std::string flag = flags_ + "/reshdlproto_flag";
    if (on)
        std::ofstream(flag) << "1";
    else
        fs::remove(flag);
}

void Session::output(const std::string& text) {
    const std::lock_guard lock(mutex_);
    outputs_.push_back(text);
}

void Session::on_line(int32_t level, const char* text) {
    const char* const place = strstr(text, ")] ");
    const std::string line = place == nullptr ? text : place + 3;
    const std::lock_guard lock(mutex_);
    if (line.starts_with("ignore handle: 2304")) ++ignored_;
    if (level > 1) return;
    ++bad_lines_;
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
        for (const char* text : {check.pszPath, check.pszRepository, check.pszMounts, check.pszUser, check.pszNamespace,
                                 check.pszImageId, check.pszContainerId, check.pszImageTag, check.pszImageName,
                                 check.pszContainerName, check.pszCapability, check.pszPortsBinding})
            size += text == nullptr ? 0 : strlen(text) + 1;
    } else {
        ST_PB_EVENT native{};
        memcpy(&native, event->GetNativeEvent(), sizeof native);
        size = native.uSize;
        if (native.pszGuid == nullptr) guid = "without";
        if (native.uEventId != id) guid = "of-another-id";
    }
    output(std::to_string(id) + ":" + std::to_string(size) + (guid == "with" ? "" : ":guid-" + guid));
}

int Session::on_callback(int code, uint32_t, const char*, uint32_t size) {
    g_session->output("callback" + std::to_string(code) + ":" + std::to_string(size));
    return 1;
}

int32_t Session::scripted_call(uint32_t function, const char* input, uint32_t input_size, char** result,
                               uint32_t* result_size) {
    std::unique_lock lock(mutex_);
    ++calls_[function];
    if (function == ZELTRC_RELEASE) {
        if (*result != nullptr && results_.erase(*result) == 0) outputs_.push_back("released what was not handed out");
        lock.unlock();
        free(*result);
        return 0;
    }
    if (function == ZELTRC_CREATE) {
        while (held_) {
            lock.unlock();
            pause();
            lock.lock();
        }
        zelhost::overrides::advance(std::exchange(trace_time_, 0ms));
    }
    auto& answers = answers_[function];
    const Answer given = answers.empty() ? Answer{} : answers.front();
    if (!answers.empty()) answers.pop_front();
    if (result_size == nullptr) return given.code;
    *result = nullptr;
    *result_size = 0;
    if (!given.result) return given.code;
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

void Session::hang(const char* what) {
    printf("wrong hang in step '%s': %s\n", step_.c_str(), what);
    const std::lock_guard lock(mutex_);
    for (const auto& line : lines_) printf("line %s\n", line.c_str());
    fflush(stdout);
    _exit(3);
}

void Session::wait_until(const char* what, const std::function<bool()>& done) {
    const auto deadline = zelhost::overrides::real_now() + kDeadline;
    while (!done()) {
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

// An ignored event comes out of the alarm worker when all before it has been worked on. It may itself be the event that
// a failure costs: then there is an error line, and another is sent.
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
    if (rest == Rest::alarm_worker) return;
    trace_worker_rests();
    wait_for_bus();
}

void Session::trace_worker_rests() {
    const uint64_t sleeps = zelhost::overrides::trace_worker_sleeps();
    wait_until("the trace worker comes to rest", [=] { return zelhost::overrides::trace_worker_sleeps() >= sleeps + 2; });
}

void Session::step(const std::string& name, const char* group, const std::function<void()>& action, Rest rest) {
    step_ = name;
    action();
    if (running_ && !stopped_once_) come_to_rest(rest);
    if (running_ && stopped_once_) trace_worker_rests();
    std::vector<std::string> outputs;
    std::vector<std::string> lines;
    {
        const std::lock_guard lock(mutex_);
        outputs.swap(outputs_);
        lines.swap(lines_);
    }
    std::ranges::sort(outputs);
    printf("%s %s|%s|", armed_ ? "armed" : "clean", name.c_str(), group);
    for (const auto& text : outputs) printf("%s ", text.c_str());
    printf("|%lu\n", failing_allocations_counted());
    for (const auto& line : lines) printf("line %s\n", line.c_str());
    fflush(stdout);
}

void Session::finish() {
    wait_for_bus();
    const auto ds_counts =
        reinterpret_cast<zelds_get_counts_t>(symbol("reshdl/lib/libzelcount.so", "zelds_get_counts"));
    zelds_counts ds{};
    ds_counts(&ds);
    const lummb_counts now = bus();
    const std::lock_guard lock(mutex_);
    printf(
        "end allocations=%lu failed=%d alive=%lu late=%lu frames=%lu threads=%zu modules=%ld inits=%ld results=%zu "
        "manager=%d\n",
        failing_allocations_counted(), failing_allocations_failed() ? 1 : 0, now.alive, now.late, now.frames,
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
