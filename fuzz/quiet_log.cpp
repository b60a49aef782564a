// The logger of the fuzz targets. It formats every line of every level, so that a bad format or a text without its
// terminator is found, and writes none.
#include <google/protobuf/stubs/logging.h>

#include <cstdarg>
#include <cstdio>

#include "platform/zel_support.h"

extern "C" int32_t zel_log_output(int32_t, const char* format, ...) {
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    return 0;
}

// protobuf reports texts that are no UTF-8 on standard error.
[[maybe_unused]] static const auto g_former_handler = google::protobuf::SetLogHandler(nullptr);
