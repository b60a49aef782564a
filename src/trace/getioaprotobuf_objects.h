// What an event acted upon: the record of the event goes into the object field that its type has in the message. There
// is one row for each event type. Alarm worker only.
#pragma once

#include <cstdint>

#include "decode/records.h"
#include "retrace.pb.h"

namespace zel {

// Moves the event's record into the object, which must be that of its type. False when a text is refused; the alert is
// lost then.
using ObjectFiller = bool(ST_RAW_EVENT& stEvent, vorn_retrace::threat_event* pEvent, int nContainerInitPid);

struct ObjectRow {
    vorn_retrace::VORN_TRACE_EVENT_TYPE type;
    ObjectFiller* fill;
};

// The row of an event's uType; null for a type that no object is known of.
const ObjectRow* find_object_row(uint32_t uType);

}  // namespace zel
