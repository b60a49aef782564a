// Stands in an agent folder in place of the trace module or of the bus, and passes every call on to the program that loads it.
#include "scripted_host.h"

#define EXPORT extern "C" __attribute__((visibility("default")))

EXPORT int32_t trace_event_init() { return scripted_call(ZELTRC_INIT, nullptr, 0, nullptr, nullptr); }
EXPORT int32_t trace_event_uninit() { return scripted_call(ZELTRC_UNINIT, nullptr, 0, nullptr, nullptr); }
EXPORT int32_t trace_event_release(char* buffer) { return scripted_call(ZELTRC_RELEASE, nullptr, 0, &buffer, nullptr); }

#define WORK(name, number)                                                                              \
    EXPORT int32_t name(const char* input, uint32_t input_size, char** result, uint32_t* result_size) { \
        return scripted_call(number, input, input_size, result, result_size);                           \
    }
WORK(trace_event_process_completion, ZELTRC_COMPLETION)
WORK(trace_event_create_by_alert, ZELTRC_CREATE)
WORK(trace_event_expand_from_mgr, ZELTRC_EXPAND)
WORK(trace_event_coordinate_dispose_trc, ZELTRC_DISPOSE)

EXPORT int32_t DllGetClassObject(const void*, const void*, void** out) { return scripted_class_object(out); }
