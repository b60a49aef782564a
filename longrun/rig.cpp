#include "rig.h"

#include <malloc.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <thread>

#include "event_kinds.h"
#include "failure.h"
#include "lumutil/log_tap.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;

constexpr auto kStep = 2ms;
constexpr int kPatience = 15000;  // steps
constexpr uint64_t kHoldEvery = 16;
constexpr std::string_view kQueueCount = "[work queue count : ";
constexpr int kFileTraceCode = 8;

// The callback of the on-demand traces has no room for an object. By code.
std::array<std::atomic<uint64_t>, 16> g_answers;
std::atomic<uint64_t> g_checksum;

// The logger reads its environment at the first line, which comes from the plug-in.
const std::vector<Setting>& prepared(const std::vector<Setting>& settings) {
    setenv("agentid", "bench", 1);
    setenv("ZEL_LOG_FILE", "/dev/null", 0);
    setenv("ZEL_LOG_LEVEL", "error", 0);
    return settings;
}

// Every byte, so that a checker sees a buffer that is gone.
uint64_t read_all(const char* data, uint64_t size) {
    return data == nullptr ? 0 : std::accumulate(data, data + size, uint64_t{0});
}

}  // namespace

Rig::Rig(const std::string& agent, const std::vector<Setting>& settings, LineWatcher watcher, void* context)
    : folder_(agent, prepared(settings)),
      watcher_(watcher),
      watcher_context_(context),
      bus_{folder_.library("liblummb.so")},
      trace_counts_{folder_.library("libzelcount.so")},
      manager_{folder_.library("libzelbpmgr.so")},
      plugin_{folder_.plugin()} {
    held_.reserve(kMostHeld);
    zel_log_set_tap(on_line, this);
    for (const uint32_t id : {kFirstReport, kFinishedTrace, kCredibleReport})
        sinks_.push_back(bus_.subscribe(id, on_event, this));
    sinks_.push_back(bus_.subscribe(kMemoryCheck, on_memory_check, this));
}

Rig::~Rig() {
    drain_bus();
    for (const uint64_t sink : sinks_) bus_.unsubscribe(sink);
    release_held();
    zel_log_set_tap(nullptr, nullptr);
}

void Rig::on_line(void* context, int32_t level, const char* text) {
    auto& rig = *static_cast<Rig*>(context);
    const std::string_view line = text;
    rig.figures_.log_line(level, line);
    if (const size_t at = line.find(kQueueCount); at != std::string_view::npos) {
        const uint64_t size = strtoul(text + at + kQueueCount.size(), nullptr, 10);
        if (size > rig.longest_event_queue_) rig.longest_event_queue_ = size;
    }
    if (rig.watcher_ != nullptr) rig.watcher_(rig.watcher_context_, line);
}

void Rig::on_event(void* context, MbFrame::IEvent* event) {
    auto& rig = *static_cast<Rig*>(context);
    const auto& record = *static_cast<const ST_PB_EVENT*>(event->GetNativeEvent());
    rig.checksum_ += read_all(record.pData, record.uSize);
    rig.figures_.sent(record);
    rig.hold(event);
}

void Rig::on_memory_check(void* context, MbFrame::IEvent* event) {
    auto& rig = *static_cast<Rig*>(context);
    const auto& record = *static_cast<const ST_MEM_DETECT_INFO*>(event->GetNativeEvent());
    rig.checksum_ += std::string_view(record.pszPath).size();
    rig.figures_.memory_check();
}

// Some events are kept for a while, as a slow subscriber would.
void Rig::hold(MbFrame::IEvent* event) {
    MbFrame::IEvent* oldest = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if (++events_seen_ % kHoldEvery != 0) return;
        event->AddRef();
        if (held_.size() == kMostHeld) {
            oldest = held_.front();
            held_.erase(held_.begin());
        }
        held_.push_back(event);
    }
    if (oldest != nullptr) give_back(oldest);
}

void Rig::give_back(MbFrame::IEvent* event) {
    const uint64_t phase = phase_;
    event->Release();
    if (phase % 2 != 0 || phase != phase_) ++outlived_;
}

void Rig::release_held() {
    std::vector<MbFrame::IEvent*> released;
    {
        const std::lock_guard lock(mutex_);
        released.assign(held_.begin(), held_.end());
        held_.clear();
    }
    for (MbFrame::IEvent* const event : released) give_back(event);
}

void Rig::start() {
    if (plugin_.init() != 0) throw Failure("plugin_init failed");
    ++phase_;
}

void Rig::stop() {
    ++phase_;
    const lummb_counts before = bus_.counts();
    plugin_.uninit();
    outlived_ += before.sending + bus_.counts().sent - before.sent;
    drain_bus();
}

template <class Publish>
void Rig::publish_when_room(uint32_t id, Publish publish) {
    int32_t answer;
    while ((answer = publish()) == LUMMB_FULL) std::this_thread::sleep_for(100us);
    if (answer == LUMMB_OK)
        figures_.published(id);
    else
        figures_.not_subscribed(id);
}

void Rig::publish(uint32_t id, const char* data, uint64_t size) {
    publish_when_room(id, [&] { return bus_.publish(id, data, size); });
}

void Rig::publish(const ST_DNS_NATIVE& record, const char* query_name) {
    publish_when_room(kDnsHit, [&] { return bus_.publish_dns(&record, query_name); });
}

int Rig::on_answer(int code, uint32_t, const char* buffer, uint32_t size) {
    g_checksum += read_all(buffer, size);
    ++g_answers.at(static_cast<size_t>(code));
    return 0;
}

int Rig::file_trace(const char* path, const char* file_key, int kind, uint32_t context) {
    const int result = plugin_.file_trace(on_answer, path, file_key, kind, context);
    if (result == 0) figures_.file_trace();
    return result;
}

int Rig::process_trace(const char* data, uint32_t size, uint32_t context) {
    const int result = plugin_.process_trace(on_answer, data, size, context);
    const std::lock_guard lock(mutex_);
    process_traces_ += result == 0;
    return result;
}

void Rig::reset_begin() {
    {
        const std::lock_guard lock(mutex_);
        if (resets_open_++ == 0) delivered_at_reset_ = bus_.counts().delivered;
    }
    plugin_.reset_db_begin();
}

// What is delivered while any such bracket is open may have been released unhandled, and so may the event that is on
// its way at the end.
void Rig::reset_end() {
    plugin_.reset_db_end();
    const std::lock_guard lock(mutex_);
    if (--resets_open_ == 0) delivered_in_resets_ += bus_.counts().delivered - delivered_at_reset_ + 1;
}

void Rig::collect(uint32_t buffer_size) { manager_.collect(ZELBPMGR_OWN_THREAD, buffer_size, on_report, this); }

void Rig::on_report(void* context, const char*, int32_t result, const char* text) {
    auto& rig = *static_cast<Rig*>(context);
    if (result != 1 || *text == '\0') return;
    const std::lock_guard lock(rig.mutex_);
    rig.reports_.add(text);
}

bool Rig::settle(const Left& carried) {
    uint64_t sign = 0;
    for (int step = 0; step < kPatience; ++step) {
        const Account now = account();
        if (now.bus.waiting == 0 && now.bus.sending == 0 && now.trace.running == 0 && now.left == carried) return true;
        const uint64_t progress = now.bus.delivered + now.bus.sent + now.trace.calls[ZELTRC_CREATE];
        if (progress != sign) step = 0;
        sign = progress;
        std::this_thread::sleep_for(kStep);
    }
    return false;
}

void Rig::drain_bus() const {
    for (lummb_counts now = bus_.counts(); now.waiting > 0 || now.sending > 0; now = bus_.counts())
        std::this_thread::sleep_for(kStep);
}

Account Rig::account() {
    Account account;
    account.bus = bus_.counts();
    account.trace = trace_counts_.counts();
    account.totals = figures_.totals();
    account.left = left_of(account.totals);
    account.outlived = outlived_;
    account.file_answers = g_answers[kFileTraceCode];
    account.all_answers = std::accumulate(g_answers.begin(), g_answers.end(), uint64_t{0});
    const std::lock_guard lock(mutex_);
    account.process_traces = process_traces_;
    account.delivered_in_resets = delivered_in_resets_;
    account.reports = reports_;
    return account;
}

uint64_t resident_kib() {
    malloc_trim(0);
    uint64_t pages = 0;
    uint64_t resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

}  // namespace zelhost
