// The table of event types: one row for each type, in the order of the types, without a gap.
//
// A row's decoder makes the record that RecordOf names for its type, and the row's process function reads that record.
// A type that is not dispatched fails its document; its decoder can still be called.
#pragma once

#include <cstdint>
#include <optional>
#include <source_location>
#include <span>

#include "decode/json_object.h"
#include "decode/key_rows.h"
#include "decode/memory_party.h"
#include "decode/records.h"

namespace zel {

struct EventType {
    uint32_t uType;
    // Gives the event a new record of its type. False, with an ERROR line, when a required key fails.
    bool (*decode)(const JsonObject& event, ST_RAW_EVENT& stEvent);
    // Null when the object is no process with an image. Nothing for a record of another type.
    std::optional<ProcessParty> (*process)(const EventPrivate& record);
    bool dispatched;               // GetEventPrivateInfo calls the decoder
    std::span<const KeyRow> keys;  // of the object, in reading order
};

// All rows, type 1 first.
std::span<const EventType> event_types();

// Null for an unknown type.
const EventType* find_event_type(uint32_t uType);

// The ERROR line that decoding and freeing have in common.
void log_unknown_event(uint32_t uType, std::source_location where = std::source_location::current());

}  // namespace zel
