// What an event acted upon, from its record into its object field: one row an event type.
#pragma once

#include <cstdint>

#include "decode/records.h"
#include "retrace.pb.h"

namespace zel {

// Fills the object of the event from the record behind pPrivate, which is that of the event's type. False when a text
// is refused; the alert is lost then. Alarm worker only.
using ObjectFiller = bool(const ST_RAW_EVENT& stEvent, vorn_retrace::threat_event* pEvent, int nContainerInitPid);

struct ObjectRow {
    vorn_retrace::VORN_TRACE_EVENT_TYPE type;
    ObjectFiller* fill;
};

// The row of an event's uType; null for a type that no object is known of.
const ObjectRow* find_object_row(uint32_t uType);

}  // namespace zel
