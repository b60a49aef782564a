#include "incoming_event.h"

#include <atomic>
#include <deque>
#include <mutex>
#include <utility>

#include "bus_codes.h"

namespace {

std::atomic<uint64_t> g_alive;

// Enough for a call that comes late by a few events, and few enough not to show as a growth of memory.
constexpr size_t kMostEnded = 256;

// Keeps the empty object until kMostEnded others have ended. The list is never destroyed, because events may end while
// the process exits.
void keep_ended(IncomingEvent* event) {
    static auto& ended = *new std::deque<std::unique_ptr<IncomingEvent>>;
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    ended.emplace_back(event);
    if (ended.size() > kMostEnded) ended.pop_front();
}

}  // namespace

IncomingEvent::IncomingEvent(uint32_t id, std::unique_ptr<Payload> payload)
    : id_(id), payload_(std::move(payload)), dns_face_(*this) {
    references_.hand_out();
    ++g_alive;
}

int32_t IncomingEvent::QueryInterface(const InterfaceId* iid, void** out) {
    if (out == nullptr) return kNullPointer;
    *out = nullptr;
    if (iid == nullptr) return kNoInterface;
    void* face = nullptr;
    if (*iid == kIidEvent || *iid == kIidUnknown) face = static_cast<MbFrame::IEvent*>(this);
    // Only an event with a DNS record has the second interface.
    if (*iid == kIidDnsEvent && payload_ != nullptr && payload_->is_dns())
        face = static_cast<MbFrame::IDnsEvent*>(&dns_face_);
    if (face == nullptr || references_.add() == ReferenceCount::kLate) return kNoInterface;
    *out = face;
    return kOk;
}

int64_t IncomingEvent::AddRef() {
    const int64_t count = references_.add();
    return count == ReferenceCount::kLate ? 0 : count;
}

// Only the call that brings the count to 0 frees the payload; late calls answer 0 and are counted.
int64_t IncomingEvent::Release() {
    const int64_t left = references_.drop();
    if (left > 0) return left;
    if (left == 0) {
        payload_.reset();
        --g_alive;
        keep_ended(this);
    }
    return 0;
}

uint64_t IncomingEvent::alive() { return g_alive; }
