// A library to preload. It counts the calls of the plug-in that can fail, and makes one of them fail: allocations,
// files, threads, mutexes, libraries and their symbols, settings.
//
// It walks up the stack from the call. Frames of libraries that work for their caller are passed over: the C and C++
// libraries, cJSON, jansson, libuuid, protobuf, a sanitizer's runtime. If the next frame lies in libzelreshdl.so, the
// call belongs to the plug-in. What the loader, a stand-in or the host calls is neither counted nor failed.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)
extern "C" {

// Starts counting, from 1 on the first call. The call with this number fails; with 0 none does. The place goes to the
// descriptor `report` as one line: FUNCTION or FUNCTION:SUBJECT, the thread, then MODULE+OFFSET for each frame, the
// innermost first. The subject is what the call was about: the last part of a path, a symbol or a key. The line is
// written before the call fails, so it is there even when the process ends at once. Any thread.
void failing_calls_begin(uint64_t number, int report);
// Stops counting. The count stays, so a later begin goes on from it.
void failing_calls_end();

// How many calls were counted, and whether the one with the number was among them.
uint64_t failing_calls_counted();
bool failing_calls_failed();

// For a program with an fopen of its own, which asks for each file: the path to open in place of `path`. Null when the
// call is to fail, with errno set. The answer lives as long as `path`.
const char* failing_calls_file(const char* path, const char* mode);

}  // extern "C"
#pragma GCC visibility pop
