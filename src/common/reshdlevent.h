// Outgoing events. The bus and its subscribers count references to them and may release them on any thread, long after
// the plug-in's own call has returned. So an event owns what it carries.
#pragma once

#include <memory>
#include <variant>

#include "common/memory.h"
#include "common/trc_functions.h"
#include "platform/mbframe.h"
#include "platform/native_payloads.h"

namespace ReshdlEventTrace {

// A serialised message and its owner. The owner's type says how the message is freed: a builder's buffer is freed here,
// and a result of the trace module goes back to the module.
class Payload {
public:
    Payload() = default;
    Payload(zel::MallocBuffer buffer, uint64_t size) : owner_(std::move(buffer)), size_(size) {}
    Payload(TraceResult result) : size_(result.size()) { owner_.emplace<TraceResult>(std::move(result)); }

    char* data() const;
    uint64_t size() const { return size_; }
    // Gives a result of the trace module back, also a null one, because the module counts those as well. A buffer is
    // freed.
    void give_back();

private:
    std::variant<zel::MallocBuffer, TraceResult> owner_;
    uint64_t size_ = 0;
};

// The reference count and the answers that both classes of events share. Any thread.
class CountedEvent : public MbFrame::IEvent {
public:
    // Knows "IEvent" alone: adds a reference and answers 0. For any other id it answers 0x80004002 and a null result;
    // for a null `out` it answers 0x80004003.
    int32_t QueryInterface(const InterfaceId* iid, void** out) override;
    int64_t AddRef() override;
    // Frees the object when the count reaches 0.
    int64_t Release() override;
    int32_t GetPublishedState() override { return 1; }

private:
    volatile int64_t m_llRef = 0;
};

// An event that carries a serialised vorn_trace_info: 769, 770 or 771.
class CReshdlEvent final : public CountedEvent {
public:
    // Makes an event with one reference, the caller's. The event takes the payload over. The answer is null when there
    // is no memory, and the payload stays with the caller then.
    static CReshdlEvent* New(uint32_t uEventId, uint32_t uSourceEventId, Payload& stPbEvent, const char* pszGuid);
    ~CReshdlEvent() override;

    uint32_t GetEventId() override { return m_stNative.uEventId; }
    void* GetNativeEvent() override { return &m_stNative; }
    // Valid as long as the caller holds a reference.
    const Payload& payload() const { return m_stPayload; }

private:
    CReshdlEvent(uint32_t uEventId, uint32_t uSourceEventId, Payload& stPbEvent, const char* pszGuid);

    Payload m_stPayload;
    ST_PB_EVENT m_stNative;
};

// Gives one reference back.
struct Releaser {
    void operator()(MbFrame::IEvent* event) const { event->Release(); }
};
using EventRef = std::unique_ptr<MbFrame::IEvent, Releaser>;

// What became of a message: either an event or the message itself.
struct Invoked {
    std::unique_ptr<CReshdlEvent, Releaser> event;  // our reference; null when nothing was sent
    Payload refused;                                // the message, when nothing was sent
};

}  // namespace ReshdlEventTrace

// Publishes a message, or says in the log why it was not sent. From then on the event owns the message. A message that
// was not sent comes back, so that the caller decides when it is freed. pszGuid must not be null; it is copied. Any
// thread.
ReshdlEventTrace::Invoked InvokeEvent(uint32_t uEventId, uint32_t uSourceEventId, ReshdlEventTrace::Payload stMessage,
                                      const char* pszGuid);
