// Lets one allocation of this thread fail, in programs that link failing_memory.cpp.
#pragma once

#include <cstdint>
#include <utility>

namespace zel_test {

// Allocations until the one that fails; negative when none is to fail.
inline thread_local int64_t allocations_left = -1;

// The allocation behind `count` others fails, and no other one.
class FailingMemory {
public:
    explicit FailingMemory(int64_t count) { allocations_left = count; }
    ~FailingMemory() { allocations_left = -1; }
    FailingMemory(const FailingMemory&) = delete;
    static bool has_failed() { return allocations_left < 0; }
};

// What the test itself allocates meanwhile neither counts nor fails.
class MemoryForTheTest {
public:
    ~MemoryForTheTest() { allocations_left = left_; }

private:
    int64_t left_ = std::exchange(allocations_left, -1);
};

}  // namespace zel_test
