// Who can be checked for foreign code in memory: the process that is the object of an event.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "decode/records.h"

struct ProcessParty {
    uint32_t uPid;
    int64_t llCreateTime;
    const std::string* pstrImage;  // of the event's record
};

// The object of an event whose object is a process with an image: types 1, 3 and 30 to 33. Nothing for all others.
std::optional<ProcessParty> object_process(const ST_RAW_EVENT& stEvent);
