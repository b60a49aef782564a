// Allocations that fail, for the code under test. A target that is linked with failing_memory.cpp has operator new and
// the malloc family of its own for that; what a target allocates itself never fails.
#pragma once

#include <cstdint>

namespace fuzz {

// One thread runs everything, so that plain variables do.
inline bool memory_fails = false;

// While it lives, one in `period` allocations fails at random; the seed says which.
class FailingMemory {
public:
    FailingMemory(uint32_t period, uint32_t seed);
    ~FailingMemory() { memory_fails = false; }
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;
};

// While it lives, no allocation fails.
class MemoryHolds {
public:
    MemoryHolds() { memory_fails = false; }
    ~MemoryHolds() { memory_fails = failed_; }
    MemoryHolds(const MemoryHolds&) = delete;
    MemoryHolds& operator=(const MemoryHolds&) = delete;

private:
    bool failed_ = memory_fails;
};

}  // namespace fuzz
