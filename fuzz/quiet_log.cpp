// The logger of the fuzz targets. It formats every line of every level, so that a bad format or a text without its
// terminator is found, and writes none.
#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "fuzz.h"
#include "platform/zel_support.h"

// A line is its format with a number or a text in each place.
extern "C" int32_t zel_log_output(int32_t level, const char* format, ...) {
    constexpr size_t kLongestNumber = 24;
    static char line[1 << 16];
    FUZZ_CHECK(level >= ZEL_LOG_ERROR && level <= ZEL_LOG_DEBUG);
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    FUZZ_CHECK(length > 0);
    if (fuzz::longest_text == SIZE_MAX) return 0;
    const auto places = static_cast<size_t>(std::count(format, format + strlen(format), '%'));
    FUZZ_CHECK(static_cast<size_t>(length) <= strlen(format) + places * (kLongestNumber + fuzz::longest_text));
    return 0;
}

// protobuf reports texts that are no UTF-8 on standard error.
[[maybe_unused]] static const auto g_former_handler = google::protobuf::SetLogHandler(nullptr);
