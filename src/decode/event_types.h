// The table of event types: one row a type, in the order of the types, without a gap.
//
// A row's decoder makes exactly the record that the row's release function frees and its process function reads; a type
// that the dispatch does not reach fails its document, but its records can be made by calling the decoder, and are
// freed.
#pragma once

#include <cstdint>
#include <source_location>
#include <span>

#include "decode/json_object.h"
#include "decode/memory_party.h"
#include "decode/records.h"

namespace zel {

struct EventType {
    uint32_t uType;
    bool (*decode)(const JsonObject& event, ST_RAW_EVENT& stEvent);
    void (*release)(void* record);
    ProcessParty (*process)(const void* record);  // null: the object is no process with an image
    bool dispatched;
};

std::span<const EventType> event_types();

// Null for an unknown type.
const EventType* find_event_type(uint32_t uType);

void log_unknown_event(uint32_t uType, std::source_location where = std::source_location::current());

}  // namespace zel
