// Log lines of the plug-in. Each goes through one macro. The macro joins prefix and text to one literal format and adds
// process id, tag, file and line. So the text must be a literal. Any thread may log.
//
// Operators and their tools match these lines by their text. Some texts are misspelt ("moudle", "procees", "qury_name",
// "truck trace"); they stay as they are, because a corrected text would no longer be found.
#pragma once

#include <source_location>

#include "platform/zel_support.h"

namespace zel {

// The process id for the prefix. It is read once, and again after a fork.
long log_pid();

// The file name without its folders. A source_location has the whole path, while __FILE_NAME__ has the name alone.
constexpr const char* base_name(const char* path) {
    const char* name = path;
    for (const char* at = path; *at != '\0'; ++at)
        if (*at == '/') name = at + 1;
    return name;
}

}  // namespace zel

#define ZEL_LOG_FROM(file, line, level, word, text, ...)                                                        \
    zel_log_output(level, "[PID:%-5ld]\t[" word "]\t%-10s [%s(%d)] " text, zel::log_pid(), "[zelreshdl]", file, \
                   static_cast<int>(line) __VA_OPT__(, ) __VA_ARGS__)

#define LOG_ERROR(...) ZEL_LOG_FROM(__FILE_NAME__, __LINE__, ZEL_LOG_ERROR, "ERROR", __VA_ARGS__)
#define LOG_WARN(...) ZEL_LOG_FROM(__FILE_NAME__, __LINE__, ZEL_LOG_WARN, "WARN", __VA_ARGS__)
#define LOG_INFO(...) ZEL_LOG_FROM(__FILE_NAME__, __LINE__, ZEL_LOG_INFO, "INFO", __VA_ARGS__)
#define LOG_DEBUG(...) ZEL_LOG_FROM(__FILE_NAME__, __LINE__, ZEL_LOG_DEBUG, "DEBUG", __VA_ARGS__)

// For a function that logs in the name of its caller: the line shows the caller's file and line. `where` is a
// std::source_location.
#define ZEL_LOG_AT(where, level, word, ...) \
    ZEL_LOG_FROM(zel::base_name((where).file_name()), (where).line(), level, word, __VA_ARGS__)
#define LOG_ERROR_AT(where, ...) ZEL_LOG_AT(where, ZEL_LOG_ERROR, "ERROR", __VA_ARGS__)
#define LOG_WARN_AT(where, ...) ZEL_LOG_AT(where, ZEL_LOG_WARN, "WARN", __VA_ARGS__)
#define LOG_INFO_AT(where, ...) ZEL_LOG_AT(where, ZEL_LOG_INFO, "INFO", __VA_ARGS__)
#define LOG_DEBUG_AT(where, ...) ZEL_LOG_AT(where, ZEL_LOG_DEBUG, "DEBUG", __VA_ARGS__)
