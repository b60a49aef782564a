// Live configuration.
#pragma once

#include <cstdint>

// Applies the terminated JSON document `data`, whose "delay_time" and "queue_size" are texts of decimal numbers. 0, or
// -1 with a log line and nothing changed. Any thread.
int update_configuration(const char* data, uint32_t size);
