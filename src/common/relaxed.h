// Numbers that threads share without a lock. A reader may see an old value for a moment, and an update may be lost;
// neither does harm.
#pragma once

#include <atomic>
#include <cstdint>

inline uint64_t value_of(const std::atomic<uint64_t>& number) { return number.load(std::memory_order_relaxed); }
