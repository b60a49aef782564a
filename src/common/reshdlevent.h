// Outgoing bus events. Bus and subscribers hold them by reference count and may release them on any thread, long after
// the plug-in's own call has returned, so an event owns what it carries.
#pragma once

#include <memory>
#include <variant>

#include "common/memory.h"
#include "common/trc_functions.h"
#include "platform/mbframe.h"
#include "platform/native_payloads.h"

namespace ReshdlEventTrace {

// A serialised message with its owner, whose type says how it is freed: a builder's buffer, or a result of the trace
// module, which goes back to it.
class Payload {
public:
    Payload() = default;
    Payload(zel::MallocBuffer buffer, uint64_t size) : owner_(std::move(buffer)), size_(size) {}
    Payload(TraceResult result) : size_(result.size()) { owner_.emplace<TraceResult>(std::move(result)); }

    char* data() const;
    uint64_t size() const { return size_; }
    // A result of the trace module goes back to it, a null one too; a buffer is freed.
    void give_back();

private:
    std::variant<zel::MallocBuffer, TraceResult> owner_;
    uint64_t size_ = 0;
};

// The count and the answers that both event classes share.
class CountedEvent : public MbFrame::IEvent {
public:
    // Answers "IEvent" alone: adds a reference and returns 0. Else 0x80004002 with a null result; a null `out` is
    // 0x80004003.
    int32_t QueryInterface(const InterfaceId* iid, void** out) override;
    int64_t AddRef() override;
    // Frees the object at 0.
    int64_t Release() override;
    int32_t GetPublishedState() override { return 1; }

private:
    volatile int64_t m_llRef = 0;
};

// A serialised vorn_trace_info.
class CReshdlEvent final : public CountedEvent {
public:
    // An event with a count of 1 that has taken the payload over. Null when there is no memory; the payload is the
    // caller's still.
    static CReshdlEvent* New(uint32_t uEventId, uint32_t uSourceEventId, Payload& stPbEvent, const char* pszGuid);
    ~CReshdlEvent() override;

    uint32_t GetEventId() override { return m_stNative.uEventId; }
    void* GetNativeEvent() override { return &m_stNative; }
    // Valid as long as the event.
    const Payload& payload() const { return m_stPayload; }

private:
    CReshdlEvent(uint32_t uEventId, uint32_t uSourceEventId, Payload& stPbEvent, const char* pszGuid);

    Payload m_stPayload;
    ST_PB_EVENT m_stNative;
};

// One reference of an event.
struct Releaser {
    void operator()(MbFrame::IEvent* event) const { event->Release(); }
};
using EventRef = std::unique_ptr<MbFrame::IEvent, Releaser>;

// What became of a message.
struct Invoked {
    std::unique_ptr<CReshdlEvent, Releaser> event;  // the caller's reference; null when the message was not sent
    Payload refused;                                // the message then
};

}  // namespace ReshdlEventTrace

// Publishes a message and says in the log why not. The event owns the message from then on; what was not sent comes
// back, so that the caller decides when it is freed. pszGuid must not be null; it is copied. Any thread.
ReshdlEventTrace::Invoked InvokeEvent(uint32_t uEventId, uint32_t uSourceEventId, ReshdlEventTrace::Payload stMessage,
                                      const char* pszGuid);
