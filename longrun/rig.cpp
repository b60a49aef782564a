#include "longrun/rig.h"

#include <chrono>
#include <cstdlib>
#include <numeric>
#include <thread>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;

constexpr auto kStep = 2ms;
// Progress starts the count anew, so a slow machine has as long as it needs.
constexpr int kPatience = 15000;  // steps
// Every sixteenth event is kept; enough to see a buffer that went too early.
constexpr uint64_t kHoldEvery = 16;

// Sets the environment. The logger reads it at its first line, which comes from the plug-in. A value that is set
// already stays.
const std::vector<Setting>& prepared(const std::vector<Setting>& settings) {
    setenv("agentid", "bench", 1);
    setenv("ZEL_LOG_FILE", "/dev/null", 0);
    setenv("ZEL_LOG_LEVEL", "error", 0);
    return settings;
}

// Reads every byte, so that a checker sees a buffer that is gone. The sum keeps the compiler from leaving the reading
// out.
uint64_t read_all(const char* data, uint64_t size) {
    return data == nullptr ? 0 : std::accumulate(data, data + size, uint64_t{0});
}

}  // namespace

Rig::Rig(const std::string& agent, const std::vector<Setting>& settings, Watcher watcher)
    : watcher_(std::move(watcher)), folder_(agent, prepared(settings)), session_(folder_, *this) {
    // So that keeping an event never allocates within a callback.
    held_.reserve(kMostHeld);
}

Rig::~Rig() { release_held(); }

void Rig::on_log_line(const LogLine& line) {
    peaks_.line(line);
    if (watcher_) watcher_(line);
}

// Keeps some of the events for a while, as a slow subscriber does.
void Rig::on_event(MbFrame::IEvent& event, const ST_PB_EVENT& record) {
    checksum_ += read_all(record.pData, record.uSize);
    MbFrame::IEvent* oldest = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if (++events_seen_ % kHoldEvery != 0) return;
        event.AddRef();
        if (held_.size() == kMostHeld) {
            oldest = held_.front();
            held_.erase(held_.begin());
        }
        held_.push_back(&event);
    }
    // Outside of the lock, because a release may run code of the plug-in.
    if (oldest != nullptr) give_back(oldest);
}

// Reads the path to its end, so that a checker sees a text that is gone.
void Rig::on_memory_check(const ST_MEM_DETECT_INFO& info) { checksum_ += std::string_view(info.pszPath).size(); }

void Rig::on_answer(int, uint32_t, const char* buffer, uint32_t size) { checksum_ += read_all(buffer, size); }

// May count too many but never too few, because a stop may begin while the release is under way.
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
    if (session_.start() != 0) throw Failure("plugin_init failed");
    for (const std::string& sentence : session_.unknown()) throw Failure("{}", sentence);
    ++phase_;
}

void Rig::stop() {
    ++phase_;
    outlived_ += session_.stop();
}

bool Rig::settle(const Left& discarded) {
    uint64_t sign = 0;
    int steps = 0;
    return session_.wait_until_settled(discarded, [&](const Session::Open&) {
        const Account now = session_.account();
        const uint64_t progress =
            now.bus.delivered + now.bus.sent + now.trace.value_or(zeltrc_counts{}).calls[ZELTRC_CREATE];
        if (progress != sign) steps = 0;
        sign = progress;
        std::this_thread::sleep_for(kStep);
        return ++steps < kPatience;
    });
}

}  // namespace zelhost
