// Times in buckets whose width grows with the time: any number of times in bounded room, each known to 1/64 of itself.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>

namespace zelhost {

// Microseconds. One thread at a time.
class Histogram {
public:
    using Microseconds = std::chrono::microseconds;

    // A time below 0 counts as 0.
    void add(Microseconds time);

    uint64_t count() const { return count_; }
    // Exact.
    Microseconds highest() const { return highest_; }
    // The time that this share of all times, from 0 to 1, does not exceed, and at most 1/64 more; 0 without any times.
    Microseconds quantile(double share) const;

private:
    static constexpr uint64_t kSteps = 64;  // buckets between a power of two and the next
    // Enough for every number of 64 bits: the first 64 numbers have the first 64 buckets, and each
    // of the 58 powers of two above has 64 more.
    static constexpr size_t kBuckets = 59 * kSteps;

    static size_t bucket_of(uint64_t time);
    static uint64_t top_of(size_t bucket);

    // How many times fell into each bucket.
    std::array<uint64_t, kBuckets> buckets_{};
    uint64_t count_ = 0;
    Microseconds highest_{0};
};

}  // namespace zelhost
