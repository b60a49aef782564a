// Log lines of the module.
#pragma once

#include "standin/agent_log.h"

#define ZELTRC_LOG(level, word, ...) AGENT_LOG(level, word, "[zeltrc]", __VA_ARGS__)
