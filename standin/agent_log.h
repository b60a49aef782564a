// Log lines of the stand-ins, in the form that all modules of the agent share. The text must be a literal. Any thread.
#pragma once

#include <unistd.h>

#include "platform/zel_support.h"

#define AGENT_LOG(level, word, tag, text, ...)                                                               \
    zel_log_output(level, "[PID:%-5ld]\t[" word "]\t%-10s [%s(%d)] " text, static_cast<long>(getpid()), tag, \
                   __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
