#include "common/reshdlevent.h"

#include <cstring>
#include <new>

#include "common/checks.h"
#include "common/log.h"
#include "common/module_state.h"

namespace ReshdlEventTrace {
namespace {

constexpr int32_t kNoInterface = static_cast<int32_t>(0x80004002);
constexpr int32_t kNullPointer = static_cast<int32_t>(0x80004003);

}  // namespace

char* Payload::data() const {
    const auto* result = std::get_if<TraceResult>(&owner_);
    return result != nullptr ? result->data() : std::get<zel::MallocBuffer>(owner_).get();
}

void Payload::give_back() {
    if (auto* const result = std::get_if<TraceResult>(&owner_))
        result->give_back();
    else
        std::get<zel::MallocBuffer>(owner_).reset();
}

int32_t CountedEvent::QueryInterface(const InterfaceId* iid, void** out) {
    if (out == nullptr) return kNullPointer;
    if (iid == nullptr || !(*iid == kIidEvent)) {
        *out = nullptr;
        return kNoInterface;
    }
    *out = static_cast<MbFrame::IEvent*>(this);
    AddRef();
    return 0;
}

int64_t CountedEvent::AddRef() { return zel_atomic64_add_and_fetch(&m_llRef, 1); }

int64_t CountedEvent::Release() {
    // The trace stage keeps a reference of its own over the publishing, so the last one may go here or on a bus thread.
    const int64_t left = zel_atomic64_add_and_fetch(&m_llRef, -1);
    if (left > 0) return left;
    delete this;
    return 0;
}

CReshdlEvent* CReshdlEvent::New(uint32_t uEventId, uint32_t uSourceEventId, Payload& stPbEvent, const char* pszGuid) {
    const char* const pPbEvent = stPbEvent.data();
    ZEL_ASSERT(pPbEvent);
    auto* event = new (std::nothrow) CReshdlEvent(uEventId, uSourceEventId, stPbEvent, pszGuid);
    if (event == nullptr) {
        LOG_WARN("Create event Failed");
        return nullptr;
    }
    event->AddRef();
    return event;
}

CReshdlEvent::CReshdlEvent(uint32_t uEventId, uint32_t uSourceEventId, Payload& stPbEvent, const char* pszGuid)
    : m_stPayload(std::move(stPbEvent)),
      m_stNative{uEventId, m_stPayload.size(), m_stPayload.data(), uSourceEventId, nullptr} {
    // The record points into the payload, which has been moved into the event by now. Without memory for the GUID the
    // event goes out with a null one.
    const size_t size = strlen(pszGuid) + 1;
    zel::MallocBuffer copy = zel::copy_bytes(pszGuid, size);
    m_stNative.pszGuid = copy.release();  // the record is a C structure; the destructor frees its text
}

CReshdlEvent::~CReshdlEvent() { free(m_stNative.pszGuid); }

}  // namespace ReshdlEventTrace

ReshdlEventTrace::Invoked InvokeEvent(uint32_t uEventId, uint32_t uSourceEventId, ReshdlEventTrace::Payload stMessage,
                                      const char* pszGuid) {
    ReshdlEventTrace::Invoked outcome{nullptr, std::move(stMessage)};  // refused until an event has taken it over
    if (outcome.refused.data() == nullptr) {
        LOG_ERROR("Invoke buf is null!");
        return outcome;
    }
    MbFrame::IDispatch* const dispatcher = g_pDispatcher.load(std::memory_order_acquire);
    if (dispatcher == nullptr) {
        LOG_ERROR("dispatcher is null!");
        return outcome;
    }
    // The text has always shown 32 bits of the size.
    LOG_INFO("invoke buf size:%u", static_cast<uint32_t>(outcome.refused.size()));
    outcome.event.reset(ReshdlEventTrace::CReshdlEvent::New(uEventId, uSourceEventId, outcome.refused, pszGuid));
    if (outcome.event == nullptr) {
        LOG_ERROR("create event error!");
        return outcome;
    }
    dispatcher->Invoke(outcome.event.get());
    LOG_INFO("invoke event succeed!");
    return outcome;
}
