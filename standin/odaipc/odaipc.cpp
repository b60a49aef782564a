// The agent's library for talk between processes. Of all that it has, only the identity of the host is here; the
// plug-in looks the function up and does not call it.
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include "standin/export.h"

// Writes the identity of the host, eight hexadecimal digits, cut to `size` with its terminator. 0, or -1 without a
// buffer.
extern "C" STANDIN_EXPORT int32_t oda_get_hostid(char* out, uint32_t size) {
    if (out == nullptr || size == 0) return -1;
    snprintf(out, size, "%08lx", static_cast<unsigned long>(gethostid()) & 0xffffffffUL);
    return 0;
}
