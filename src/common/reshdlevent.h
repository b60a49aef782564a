// Outgoing bus events. Bus and subscribers hold them by reference count and may release them on any thread, long after
// the plug-in's own call has returned, so an event owns what it carries.
#pragma once

#include <memory>

#include "platform/mbframe.h"
#include "platform/native_payloads.h"

namespace ReshdlEventTrace {

// Where the buffer of an event comes from, and so who frees it.
enum class EDataType : uint32_t {
    plugin = 0,        // calloc: freed by the event
    trace_module = 1,  // a result of the trace module: given back to it, if it is loaded then
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
    // The event takes pPbEvent over, with a count of 1. Null, and the buffer still the caller's, when there is no
    // memory.
    static CReshdlEvent* New(uint32_t uEventId, uint32_t uSourceEventId, char* pPbEvent, uint64_t uSize,
                             EDataType eType, const char* pszGuid);
    ~CReshdlEvent() override;

    uint32_t GetEventId() override { return m_stNative.uEventId; }
    void* GetNativeEvent() override { return &m_stNative; }

private:
    CReshdlEvent(uint32_t uEventId, uint32_t uSourceEventId, char* pPbEvent, uint64_t uSize, EDataType eType,
                 const char* pszGuid);

    EDataType m_eType;
    ST_PB_EVENT m_stNative;
};

// One reference of an event.
struct Releaser {
    void operator()(MbFrame::IEvent* event) const { event->Release(); }
};
using EventRef = std::unique_ptr<MbFrame::IEvent, Releaser>;

}  // namespace ReshdlEventTrace

// Publishes a message. The caller gets one reference, or null with a log line; from the moment that an event is
// returned the buffer belongs to it, and with null it is still the caller's. pszGuid must not be null.
ReshdlEventTrace::EventRef InvokeEvent(uint32_t uEventId, uint32_t uSourceEventId, char* pBuffer, uint64_t uSize,
                                       ReshdlEventTrace::EDataType eType, const char* pszGuid);
