// A reference count that survives misuse. It finds faults of plug-ins, so it must not crash on them.
#pragma once

#include <atomic>
#include <cstdint>

// A call that finds the count at 0 changes nothing but the number of late calls. The process has one such number. Any
// thread.
class ReferenceCount {
public:
    static constexpr int64_t kLate = -1;

    // The bus gives out a reference itself, the first one included. It may do so from 0, unlike add.
    void hand_out() { ++count_; }
    // Both return the new count, or kLate.
    int64_t add() { return change(1); }
    int64_t drop() { return change(-1); }

    int64_t value() const { return count_; }
    static uint64_t late_calls() { return late_calls_; }

private:
    int64_t change(int64_t delta) {
        int64_t seen = count_;
        while (seen > 0)
            if (count_.compare_exchange_weak(seen, seen + delta)) return seen + delta;
        ++late_calls_;
        return kLate;
    }

    std::atomic<int64_t> count_ = 0;
    inline static std::atomic<uint64_t> late_calls_ = 0;
};
