// A library to preload. It counts the allocations that the plug-in's code causes and makes one of them fail.
//
// It walks up the stack from the call. Frames of allocating libraries are passed over: the C and C++ libraries, cJSON,
// jansson, libuuid, protobuf, a sanitizer's runtime. If the next frame lies in libzelreshdl.so, the allocation belongs
// to the plug-in. What the loader, a stand-in or the host allocates is neither counted nor failed.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)
extern "C" {

// Starts counting, from 1 on the first call. The allocation with this number fails; with 0 none does. The place goes to
// the descriptor `report` as one line: the function, the thread, then MODULE+OFFSET for each frame, the innermost
// first. It is written before the call fails, so the line is there even when the process ends at once. Any thread.
void failing_allocations_begin(uint64_t number, int report);
// Stops counting. The count stays, so a later begin goes on from it.
void failing_allocations_end();

// How many allocations were counted, and whether the one with the number was among them.
uint64_t failing_allocations_counted();
bool failing_allocations_failed();

}  // extern "C"
#pragma GCC visibility pop
