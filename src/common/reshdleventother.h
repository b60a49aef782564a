// The outgoing memory-check request, event 2305.
#pragma once

#include "common/reshdlevent.h"

// Frees the path and nulls it, and frees each of the eleven texts that is set.
void FreeMemDetectInfo(ST_MEM_DETECT_INFO& stInfo);

namespace ReshdlEventTrace {

class CReshdlEventOther final : public CountedEvent {
public:
    // Copies the record's members; the texts are taken over, with a count of 1. Null when there is no memory.
    static CReshdlEventOther* New(uint32_t uEventId, const ST_MEM_DETECT_INFO* pInfo);
    // Frees the texts of event 2305; those of another id are not this object's.
    ~CReshdlEventOther() override;

    uint32_t GetEventId() override { return m_uEventId; }
    void* GetNativeEvent() override { return &m_stNative; }

private:
    CReshdlEventOther(uint32_t uEventId, const ST_MEM_DETECT_INFO& stInfo) : m_uEventId(uEventId), m_stNative(stInfo) {}

    uint32_t m_uEventId;
    ST_MEM_DETECT_INFO m_stNative;
};

}  // namespace ReshdlEventTrace

// Publishes a memory check. The record's texts, from calloc, belong to the event then. Without memory for the event
// they are freed and pszPath is null afterwards; without a dispatcher they stay allocated.
void InvokeMdEvent(uint32_t uEventId, ST_MEM_DETECT_INFO* pInfo);
