// Requests to check the memory of the processes that an event names. Alarm worker only.
#pragma once

#include <cstdint>
#include <set>

#include "decode/records.h"

// Publishes event 2305 for the subject, the object or both, as uMask says in bits of memory_check. A process whose pid
// is in setDone is left out; a process that is requested is put there. The request describes the container of the last
// container alert. An object that is not a process with an image is an ERROR line. Throws std::bad_alloc.
void InvokeMemDetect(const ST_RAW_EVENT& stEvent, uint32_t uMask, int32_t nConfidence, std::set<uint32_t>& setDone);
