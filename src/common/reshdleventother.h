// The outgoing request to check the memory of a process, event 2305.
#pragma once

#include "common/reshdlevent.h"

// Frees the path and the eleven texts. Only the path's pointer becomes null: the caller sees by it that nothing was
// sent.
void FreeMemDetectInfo(ST_MEM_DETECT_INFO& stInfo);

namespace ReshdlEventTrace {

// It owns the texts of its record.
class CReshdlEventOther final : public CountedEvent {
public:
    // Copies the members of the record and takes its texts over. The event has one reference, the caller's. Null when
    // there is no memory; the texts stay with the caller then.
    static CReshdlEventOther* New(uint32_t uEventId, const ST_MEM_DETECT_INFO* pInfo);
    // Frees the texts of event 2305. The texts of another id do not belong to this object.
    ~CReshdlEventOther() override;

    uint32_t GetEventId() override { return m_uEventId; }
    void* GetNativeEvent() override { return &m_stNative; }

private:
    CReshdlEventOther(uint32_t uEventId, const ST_MEM_DETECT_INFO& stInfo) : m_uEventId(uEventId), m_stNative(stInfo) {}

    uint32_t m_uEventId;
    ST_MEM_DETECT_INFO m_stNative;
};

}  // namespace ReshdlEventTrace

// Publishes a memory check. The texts of the record, all from calloc, belong to the event from then on. Without memory
// for the event they are freed, and pszPath is null afterwards. Without a dispatcher they stay allocated. Alarm worker
// only.
void InvokeMdEvent(uint32_t uEventId, ST_MEM_DETECT_INFO* pInfo);
