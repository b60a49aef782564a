// A process whose memory can be checked for foreign code. The event is borrowed and must outlive the party.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "decode/records.h"

struct ProcessParty {
    uint32_t uPid;
    int64_t llCreateTime;
    const std::string* pstrImage;  // points into the event or its record
};

// The object of an event, when it is a process with an image: types 1, 3 and 30 to 33. For all other types, and for an
// event without a record, there is nothing to check.
std::optional<ProcessParty> object_process(const ST_RAW_EVENT& stEvent);
