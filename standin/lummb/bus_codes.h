// Results of the bus's interfaces. The values are the agent's.
#pragma once

#include <cstdint>

inline constexpr int32_t kOk = 0;
inline constexpr int32_t kNoInterface = static_cast<int32_t>(0x80004002);
inline constexpr int32_t kNullPointer = static_cast<int32_t>(0x80004003);
inline constexpr int32_t kFailed = static_cast<int32_t>(0x80004005);
inline constexpr int32_t kNoSuchClass = static_cast<int32_t>(0x80040111);
inline constexpr int32_t kInvalidArgument = static_cast<int32_t>(0x84ce0002);
