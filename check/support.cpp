// The support functions as this library has them. Log lines are kept instead of written, and the clock stands still, so
// that a repeat is a repeat however long the check takes. The others are the stand-in's own sources; a path that begins
// with "@/" leads into the agent folder that is looked at.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "check/log_lines.h"
#include "common/capture.h"
#include "platform/zel_support.h"

namespace zel::check {

LogLines& log_lines() {
    static LogLines lines;
    return lines;
}

// The prefix ends with the place in the source, "[FILE(LINE)] ".
void LogLines::add(int32_t level, const char* line) {
    const char* const place = strstr(line, ")] ");
    lines_.push_back({level, place == nullptr ? line : place + 3});
}

}  // namespace zel::check

// Most lines are short; a long one costs an allocation. The arguments are begun anew for a long line, because the first
// pass has used them up.
int32_t zel_log_output(int32_t level, const char* format, ...) {
    zel::check::LogLines& lines = zel::check::log_lines();
    if (!lines.wants(level)) return 0;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) < sizeof text) {
        lines.add(level, text);
        return 0;
    }
    const auto size = static_cast<size_t>(length) + 1;
    const auto whole = std::make_unique<char[]>(size);
    va_start(arguments, format);
    vsnprintf(whole.get(), size, format, arguments);
    va_end(arguments);
    lines.add(level, whole.get());
    return 0;
}

uint64_t zel_time_get_tick_cout() { return 0; }

// A check leaves no copies on the machine.
void CaptureData(const char*, uint64_t, CaptureKind) {}
void CaptureTraceData(const char*, uint64_t, uint32_t) {}
