#include "e2e/harness.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace e2e {

Seen& seen = *new Seen;

namespace {

constexpr auto kDeadline = 30s;

template <class T>
void keep(std::vector<T>& list, T item) {
    locked([&] { list.push_back(std::move(item)); });
    seen.changed.notify_all();
}

void on_line(void*, int32_t level, const char* text) {
    static constexpr const char* kWords[] = {"ERROR", "WARN", "INFO", "DEBUG"};
    char prefix[64];
    snprintf(prefix, sizeof prefix, "[PID:%-5d]\t[%s]\t[zelreshdl] [", getpid(), kWords[level]);
    const std::string line = text;
    const size_t place = line.find(")] ");
    const bool others = line.find("\t[zelreshdl]") == std::string::npos;  // a stand-in's
    if (!others && (!line.starts_with(prefix) || place == std::string::npos)) keep(seen.bad_lines, line);
    keep(seen.lines, place == std::string::npos ? line : line.substr(place + 3));
}

void on_event(void*, MbFrame::IEvent* event) {
    Published published;
    published.id = event->GetEventId();
    if (published.id == 2305) {
        const auto& c = *static_cast<const ST_MEM_DETECT_INFO*>(event->GetNativeEvent());
        std::ostringstream out;
        out << c.uPid << ' ' << c.llCreateTime << ' ' << c.llOpTime << ' ' << c.nConfidence << ' '
            << c.uContainerInitPid << ' ' << c.uPrivileged << ' ' << c.pszPath;
        for (const char* text :
             {c.pszRepository, c.pszMounts, c.pszUser, c.pszNamespace, c.pszImageId, c.pszContainerId, c.pszImageTag,
              c.pszImageName, c.pszContainerName, c.pszCapability, c.pszPortsBinding})
            out << '|' << (text == nullptr ? "-" : text);
        published.bytes = out.str();
    } else {
        ST_PB_EVENT native;
        memcpy(&native, event->GetNativeEvent(), sizeof native);
        published.guid = native.pszGuid;
        published.bytes.assign(native.pData, native.uSize);
        const bool parsed = published.message.ParseFromString(published.bytes);
        if (parsed && native.uEventId == published.id) published.source = native.uSourceEventId;
    }
    keep(seen.events, {std::move(published), false});
}

int on_callback(int code, uint32_t context, const char* buffer, uint32_t size) {
    keep(seen.callbacks, {code, context, buffer == nullptr ? "null" : std::string(buffer, size)});
    return 1;
}

std::string last_lines() {
    return locked([] {
        std::string text = "the log ends:\n";
        for (size_t i = seen.lines.size() - std::min<size_t>(seen.lines.size(), 25); i < seen.lines.size(); ++i)
            text += "  " + seen.lines[i].substr(0, 300) + "\n";
        return text;
    });
}

}  // namespace

const zelhost::Bus& bus() {
    static const auto& opened = *new zelhost::Bus{{ZEL_AGENT_DIR "/reshdl/lib/liblummb.so"}};
    return opened;
}

std::vector<std::string> split(const std::string& texts) {
    std::vector<std::string> list;
    std::istringstream in(texts);
    for (std::string text; std::getline(in, text, '|');) list.push_back(text);
    return list;
}

std::multiset<std::string> workers() {
    std::multiset<std::string> names;
    for (const auto& task : fs::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        if (name.starts_with("zelreshdl_")) names.insert(name);
    }
    return names;
}

bool wait_until(const std::function<bool()>& done) {
    const auto deadline = real_now() + kDeadline;
    while (!done()) {
        std::unique_lock lock(seen.mutex);
        const auto now = real_now();
        if (now >= deadline) return false;
        // Not every change is told, so the condition is looked at again before long.
        seen.changed.wait_until(lock, now + 2ms);
    }
    return true;
}

int64_t Report::operator[](const std::string& key) const {
    const size_t at = text.find("\"" + key + "\": ");
    return at == std::string::npos ? -1 : std::stoll(text.substr(at + key.size() + 4));
}

Agent::Agent() {
    setenv("agentid", "A-1", 1);
    setenv("ZEL_LOG_FILE", "/dev/null", 0);
    root_ = (fs::temp_directory_path() / "zel-e2e-XXXXXX").string();
    if (mkdtemp(root_.data()) == nullptr) abort();
    for (const auto& entry : fs::recursive_directory_iterator(ZEL_AGENT_DIR)) {
        const std::string copy = path(entry.path().lexically_relative(ZEL_AGENT_DIR));
        if (entry.is_directory())
            fs::create_directory(copy);
        else
            fs::create_symlink(entry.path(), copy);
    }
    replace("reshdl/lib/libzeltrc.so", E2E_SCRIPTED);
    fs::create_directory(path("kq-agent"));
    redirect_flag_folder(path("kq-agent"));
    zel_log_set_tap(on_line, nullptr);
    for (const uint32_t id : {769u, 770u, 771u, 2305u}) bus().subscribe(id, on_event, nullptr);
}

void Agent::TearDown() {
    if (running_) {
        // A result that is still on its way when the module is unloaded stays for good.
        if (trace_worker_sleeps() > 0) rests(trace_worker_sleeps);
        bus_rests();
        stop();
    }
    bus_rests();
    const lummb_counts left = bus().counts();
    EXPECT_EQ(std::tuple(left.alive, left.late, left.frames), std::tuple(0u, 0u, 0u));
    EXPECT_LE(locked([] { return seen.outstanding.size(); }), kept_results_);
    EXPECT_EQ(workers(), std::multiset<std::string>());
    EXPECT_EQ(seen.bad_lines, std::vector<std::string>());
    if (HasFailure()) ADD_FAILURE() << last_lines();
    zel_log_set_tap(nullptr, nullptr);
    fs::remove_all(root_);
}

void Agent::write(const std::string& name, const std::string& text) const {
    fs::remove(path(name));
    std::ofstream(path(name)) << text;
}

std::string Agent::read(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(path(name)).rdbuf();
    return text.str();
}

// Of a key that stands twice the last counts.
void Agent::set(const std::string& ini, const std::string& section, const std::string& line) const {
    write("reshdl/config/" + ini, read("reshdl/config/" + ini) + "\n[" + section + "]\n" + line + "\n");
}

void Agent::replace(const std::string& library, const std::string& by) const {
    fs::remove(path(library));
    if (!by.empty()) fs::create_symlink(by.starts_with('/') ? by : ZEL_AGENT_DIR "/" + by, path(library));
}

const zelhost::Plugin& Agent::plugin() const {
    static const auto& opened = *new zelhost::Plugin{{path("reshdl/bin/libzelreshdl.so")}};
    return opened;
}

void Agent::send_dns(const std::string& json, uint32_t kind) const {
    const zelhost::DnsEvent event(json);
    ST_DNS_NATIVE record = event.native();
    if (kind != 0) record.uKind = kind;
    EXPECT_EQ(bus().publish_dns(&record, event.query_name()), LUMMB_OK);
}

void Agent::send(const DnsHit& hit) const {
    send_dns(R"({"kind":2,"create_time":900,"guid":"01234567-89ab-cdef-0123-456789abcdef","cmd":"curl bad","status":3,)"
             R"("results":"192.0.2.1","uhead":[42],"texts":["repo",null,null,null,null,"cid"],"domain":")" +
             hit.domain + R"(","pid":)" + std::to_string(hit.pid) + R"(,"time":)" + std::to_string(hit.time) +
             R"(,"query_name":")" + hit.query_name + R"(","path":")" + hit.path + "\"}");
}

Published Agent::expect_event(uint32_t id, const std::string& guid) {
    Published found;
    const auto take = [&] {
        for (auto& [event, taken] : seen.events) {
            if (taken || event.id != id || (!guid.empty() && event.guid != guid)) continue;
            taken = true;
            found = event;
            return true;
        }
        return false;
    };
    EXPECT_SOON(locked(take)) << id << " " << guid;
    return found;
}

std::string Agent::log_order(const std::string& texts) const {
    std::string order;
    locked([&] {
        for (const auto& line : seen.lines)
            for (const auto& text : split(texts))
                if (line.find(text) != std::string::npos) order += (order.empty() ? "" : "|") + text;
    });
    return order;
}

Callback Agent::expect_callback(uint32_t context) const {
    EXPECT_SOON(count_callbacks(context) > 0) << context;
    return locked([&] {
        const auto found = std::ranges::find(seen.callbacks, context, &Callback::context);
        return found == seen.callbacks.end() ? Callback{} : *found;
    });
}

void Agent::settle() const {
    const size_t before = count_log("ignore handle: 2304!");
    send(2304, "marker");
    expect_log("ignore handle: 2304!", before + 1);
    bus_rests();
}

void Agent::hold_alarm_worker() const {
    hold_traces(true);
    send(1793, "x");
    EXPECT_SOON(calls(ZELTRC_COMPLETION) == 1);
}

Report Agent::report(const std::string& module, uint32_t buffer_size) const {
    std::map<std::string, Report> reports;
    const auto keep_report = [](void* context, const char* name, int32_t result, const char* text) {
        (*static_cast<std::map<std::string, Report>*>(context))[name] = {result, text};
    };
    static const auto& manager = *new zelhost::ReportManager{{path("reshdl/lib/libzelbpmgr.so")}};
    manager.collect(ZELBPMGR_OWN_THREAD, buffer_size, zelbpmgr_report_t{keep_report}, &reports);
    return reports[module];
}

void Agent::expect_figures(const std::map<std::string, int64_t>& figures) const {
    const Report given = report();
    for (const auto& [key, value] : figures) EXPECT_EQ(given[key], value) << key;
}

int Agent::file_trace(int kind, uint32_t context, const char* file, const char* key) const {
    return plugin().file_trace(on_callback, file, key, kind, context);
}

int Agent::process_trace(uint32_t context, const char* data) const {
    const auto size = static_cast<uint32_t>(data == nullptr ? 0 : strlen(data));
    return plugin().process_trace(on_callback, data, size, context);
}

}  // namespace e2e

int32_t scripted_call(uint32_t function, const char* input, uint32_t input_size, char** result, uint32_t* result_size) {
    using namespace e2e;
    const auto hook = locked([&] { return seen.hooks[function]; });
    if (hook) hook();
    std::unique_lock lock(seen.mutex);
    ++seen.calls[function];
    seen.changed.notify_all();
    if (function == ZELTRC_RELEASE) {
        if (seen.outstanding.erase(*result) != 0) free(*result);
        return 0;
    }
    if (function == ZELTRC_CREATE || function == ZELTRC_COMPLETION) seen.changed.wait(lock, [] { return !seen.held; });
    auto& script = seen.scripts[function];
    const Answer answer = script.empty() ? Answer{} : script.front();
    if (script.size() > 1) script.pop_front();
    if (result_size != nullptr && answer.size_alone) *result_size = input_size;
    if (result_size == nullptr || answer.size_alone || !answer.result) return answer.code;
    *result = static_cast<char*>(malloc(input_size + 1));
    memcpy(*result, input, input_size);
    *result_size = input_size;
    seen.outstanding.insert(*result);
    return answer.code;
}
