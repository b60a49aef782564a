// A library to preload: it counts the allocations that the plug-in's code causes, and makes one of them fail.
//
// An allocation belongs to the plug-in when the innermost frame on the stack that is of no allocating library (the C
// and C++ libraries, cJSON, jansson, libuuid, protobuf, a sanitizer's runtime) lies in libzelreshdl.so. What the
// loader, a stand-in or the host allocates is neither counted nor failed.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)
extern "C" {

// Counts from here on, from 1. The allocation with this number fails, none with 0. Where it was goes to the descriptor
// `report` as one line: the function, the thread, then MODULE+OFFSET for each frame, the innermost first. The line is
// there even when the process ends at once.
void failing_allocations_begin(uint64_t number, int report);
void failing_allocations_end();

uint64_t failing_allocations_counted();
bool failing_allocations_failed();

}  // extern "C"
#pragma GCC visibility pop
