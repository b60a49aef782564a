// What the scripted library asks the program that loads it, a test or a long run.
#pragma once

#include "standin/zeltrc/zeltrc_host.h"

#pragma GCC visibility push(default)
// `function` is one of the numbers of zeltrc_host.h. A release passes its buffer in *result.
extern "C" int32_t scripted_call(uint32_t function, const char* input, uint32_t input_size, char** result,
                                 uint32_t* result_size);
// Gives the frame object of a bus.
extern "C" int32_t scripted_class_object(void** out);
#pragma GCC visibility pop
