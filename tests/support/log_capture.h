// What a test program logs: zel_log_output is defined here, in the program itself, and wins over the support library's.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/zel_support.h"

namespace zel_test {

struct LogLine {
    int32_t level;
    std::string text;  // without the prefix
};

// The lines of the whole program, from all threads.
class LogCapture {
public:
    static LogCapture& get() {
        static LogCapture capture;
        return capture;
    }
    void add(LogLine line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(std::move(line));
    }
    // The lines since the last call.
    std::vector<LogLine> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }
    // The same, of at least that severity, as one text: "E the text\n" for each line, with the level's letter.
    std::string take_text(int32_t level = ZEL_LOG_DEBUG) {
        std::string text;
        for (const LogLine& line : take())
            if (line.level <= level) text += std::string{"EWID"[line.level], ' '} + line.text + '\n';
        return text;
    }

private:
    std::mutex mutex_;
    std::vector<LogLine> lines_;
};

}  // namespace zel_test

extern "C" __attribute__((used)) inline int32_t zel_log_output(int32_t level, const char* format, ...) {
    char text[8192];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::string line = text;
    const size_t prefix = line.find(")] ");
    zel_test::LogCapture::get().add({level, prefix == std::string::npos ? line : line.substr(prefix + 3)});
    return 0;
}
