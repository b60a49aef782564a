// Requests to check the memory of the processes of an event. Alarm worker only.
#pragma once

#include <cstdint>
#include <set>

#include "decode/records.h"

// Publishes event 2305 for the parties of the event that uMask names in bits of memory_check, but for those whose pid
// is in setDone, and puts their pids there. The request describes the container of the last container alert. An object
// that is no process with an image is an ERROR line.
void InvokeMemDetect(const ST_RAW_EVENT& stEvent, uint32_t uMask, int32_t nConfidence, std::set<uint32_t>& setDone);
