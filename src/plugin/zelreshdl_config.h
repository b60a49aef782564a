// Live configuration: the two limits that can be changed while the plug-in runs. A start replaces both by what its
// settings say.
#pragma once

#include <cstdint>

// Applies the terminated JSON document `data`. "delay_time" (milliseconds) and "queue_size" (events) must be texts of
// decimal numbers. `size` is only tested for 0. The answer is 0, or -1 with a log line and nothing changed. A number
// outside its limits changes nothing either, but the answer is 0. Throws std::bad_alloc. Any thread.
int update_configuration(const char* data, uint32_t size);
