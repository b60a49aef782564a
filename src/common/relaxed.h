// Numbers that threads share without a lock, where a late look or a lost update is harmless.
#pragma once

#include <atomic>
#include <cstdint>

inline uint64_t value_of(const std::atomic<uint64_t>& number) { return number.load(std::memory_order_relaxed); }
