// Log lines of the plug-in. Each goes through one macro, which joins the prefix and the text to one literal format and
// adds process id, tag, file and line. The text must be a literal.
#pragma once

#include <source_location>

#include "platform/zel_support.h"

namespace zel {

// Process id for the prefix; read once and again after a fork.
long log_pid();

// File name without its folders.
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

// For a function that logs in the name of its caller; `where` is a std::source_location.
#define ZEL_LOG_AT(where, level, word, ...) \
    ZEL_LOG_FROM(zel::base_name((where).file_name()), (where).line(), level, word, __VA_ARGS__)
#define LOG_ERROR_AT(where, ...) ZEL_LOG_AT(where, ZEL_LOG_ERROR, "ERROR", __VA_ARGS__)
#define LOG_WARN_AT(where, ...) ZEL_LOG_AT(where, ZEL_LOG_WARN, "WARN", __VA_ARGS__)
#define LOG_INFO_AT(where, ...) ZEL_LOG_AT(where, ZEL_LOG_INFO, "INFO", __VA_ARGS__)
#define LOG_DEBUG_AT(where, ...) ZEL_LOG_AT(where, ZEL_LOG_DEBUG, "DEBUG", __VA_ARGS__)
