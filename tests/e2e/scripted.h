// What the scripted library asks the test program that loads it.
#pragma once

#include <cstdint>

#include "standin/zeltrc/zeltrc_host.h"

extern "C" {

// `function` is one of the numbers of zeltrc_host.h. A release passes its buffer in *result.
__attribute__((visibility("default"))) int32_t scripted_call(uint32_t function, const char* input, uint32_t input_size,
                                                             char** result, uint32_t* result_size);
// The frame object of a bus.
__attribute__((visibility("default"))) int32_t scripted_class_object(void** out);
}
