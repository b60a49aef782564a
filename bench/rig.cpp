#include "bench/rig.h"

#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "platform/event_ids.h"
#include "platform/zel_trc.h"
#include "standin/scripted/scripted_host.h"

namespace fs = std::filesystem;

namespace bench {
namespace {

constexpr auto kLongestWait = 60s;
// A bus that was attached to stays: the plug-in keeps its dispatcher for good.
Rig* g_rig = nullptr;
MbFrame::IPlugin* g_plugin = nullptr;

[[noreturn]] void fail(const std::string& what) {
    fprintf(stderr, "bus_road: %s\n", what.c_str());
    exit(1);
}

// The bus. It takes each event, counts it and keeps nothing.
class ScriptedBus final : public MbFrame::IRtmFrame, public MbFrame::IPluginSetting, public MbFrame::IDispatch {
public:
    int32_t QueryInterface(const InterfaceId*, void**) override { return -1; }
    void reserved6() override {}
    void reserved7() override {}
    int32_t Advise(MbFrame::IPlugin* plugin, uint32_t) override {
        g_plugin = plugin;
        return plugin->OnAdvised(this, this);
    }
    int32_t Unadvise(const unsigned char*) override { return 0; }
    int32_t SetOption(uint32_t) override { return 0; }
    int32_t reserved2() override { return 0; }
    int32_t SetEventTable(const MbFrame::EventTableEntry*, uint32_t) override { return 0; }
    int32_t Invoke(MbFrame::IEvent* event) override {
        if (g_rig != nullptr) g_rig->sent_one(*event);
        return 0;
    }
};
ScriptedBus& g_bus = *new ScriptedBus;

std::vector<zelhost::Setting> parsed(const std::vector<std::string>& settings) {
    std::vector<zelhost::Setting> list;
    for (const std::string& setting : settings) list.push_back(zelhost::parse_setting("zelreshdl:" + setting));
    return list;
}

}  // namespace

int64_t cpu_ns() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec * 1000000000L + now.tv_nsec;
}

int64_t resident_kib() {
    int64_t pages = 0;
    int64_t resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE) / 1024;
}

Rig::Rig(const std::string& agent, const std::string& scripted, const std::vector<std::string>& settings)
    : folder_(agent, parsed(settings)) {
    g_rig = this;
    for (const char* const library : {"liblummb.so", "libzeltrc.so"}) {
        fs::remove(folder_.library(library));
        fs::create_symlink(fs::absolute(scripted), folder_.library(library));
    }
    setenv("agentid", "0", 1);
    setenv("ZEL_LOG_FILE", "/dev/null", 0);
    setenv("ZEL_LOG_LEVEL", "error", 0);
    if (dlopen((folder_.root() / "lib/liblumutil.so").c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) fail(dlerror());
    library_ = dlopen(folder_.plugin().c_str(), RTLD_NOW);
    if (library_ == nullptr) fail(dlerror());
    const auto start = reinterpret_cast<int (*)()>(dlsym(library_, "plugin_init"));
    if (start == nullptr || start() != 0 || g_plugin == nullptr) fail("the plug-in of " + agent + " does not start");
}

Rig::~Rig() {
    if (const auto stop = reinterpret_cast<int (*)()>(dlsym(library_, "plugin_uninit"))) stop();
    g_rig = nullptr;
}

void Rig::publish(std::string_view document) {
    DocumentEvent event(document);
    g_plugin->OnEvent(&event, nullptr);
}

void Rig::publish(const ST_DNS_NATIVE& record, const char* query_name) {
    DnsEvent event(record, query_name);
    g_plugin->OnEvent(&event, nullptr);
}

void Rig::await_sent(uint64_t count) {
    std::unique_lock lock(mutex_);
    awaited_.store(count);
    const bool reached = reached_.wait_for(lock, kLongestWait, [&] { return sent() >= count; });
    awaited_.store(UINT64_MAX);
    if (!reached) fail(std::to_string(count) + " events were awaited, " + std::to_string(sent()) + " came");
}

int32_t Rig::attach(void** frame) {
    *frame = static_cast<MbFrame::IRtmFrame*>(&g_bus);
    return 0;
}

void Rig::sent_one(MbFrame::IEvent& event) {
    if (event.GetEventId() == event_id::mem_detect) return;
    ST_PB_EVENT native;
    memcpy(&native, event.GetNativeEvent(), sizeof native);
    last_size_.store(native.uSize, std::memory_order_release);
    last_sent_.store(Clock::now(), std::memory_order_release);
    const uint64_t count = sent_.fetch_add(1) + 1;
    if (on_sent) on_sent();
    if (count < awaited_.load()) return;
    const std::lock_guard lock(mutex_);
    reached_.notify_one();
}

}  // namespace bench

int32_t scripted_class_object(void** out) { return bench::g_rig->attach(out); }

int32_t scripted_call(uint32_t function, const char*, uint32_t, char** result, uint32_t* result_size) {
    if (function == ZELTRC_INIT || function == ZELTRC_UNINIT || function == ZELTRC_RELEASE) return 0;
    *result = nullptr;
    *result_size = 0;
    return bench::g_rig->trace ? bench::g_rig->trace() : -1;
}
