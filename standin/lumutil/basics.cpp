// Texts and atomic counting.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/zel_support.h"

// The whole source is measured, because the result tells the caller whether it was cut.
size_t zel_str_strlcpy(char* dest, const char* source, size_t size) {
    const size_t length = strlen(source);
    if (size > 0) {
        const size_t copied = length < size ? length : size - 1;
        memcpy(dest, source, copied);
        dest[copied] = '\0';
    }
    return length;
}

int32_t zel_str_snprintf(char* dest, size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(dest, size, format, args);
    va_end(args);
    // A format that the C library refuses leaves an empty text.
    if (length < 0 && size > 0) dest[0] = '\0';
    return length;
}

int64_t zel_atomic64_add_and_fetch(volatile int64_t* value, int64_t delta) {
    return __atomic_add_fetch(value, delta, __ATOMIC_SEQ_CST);
}
