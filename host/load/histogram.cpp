#include "host/load/histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace zelhost {

// Small times have a bucket each. A larger one keeps its highest seven bits.
size_t Histogram::bucket_of(uint64_t time) {
    // The shift leaves a number from 64 to 127. So each power of two has 64 buckets, and a bucket
    // is at most 1/64 of its times wide.
    if (time < kSteps) return time;
    const auto shift = static_cast<uint64_t>(std::bit_width(time)) - 7;
    return (shift + 1) * kSteps + (time >> shift) - kSteps;
}

uint64_t Histogram::top_of(size_t bucket) {
    // The largest time that falls into the bucket. A quantile is never told too low.
    if (bucket < kSteps) return bucket;
    const uint64_t shift = bucket / kSteps - 1;
    return ((bucket % kSteps + kSteps + 1) << shift) - 1;
}

void Histogram::add(Microseconds time) {
    // By rounding an event may be published a moment before its due time.
    time = std::max(time, Microseconds{0});
    ++buckets_.at(bucket_of(static_cast<uint64_t>(time.count())));
    ++count_;
    highest_ = std::max(highest_, time);
}

Histogram::Microseconds Histogram::quantile(double share) const {
    // The first bucket at which enough times have been seen has the answer. Even a share of 0 asks
    // for one time.
    const auto wanted = std::max<uint64_t>(1, static_cast<uint64_t>(std::ceil(share * static_cast<double>(count_))));
    uint64_t seen = 0;
    for (size_t bucket = 0; bucket < kBuckets; ++bucket) {
        seen += buckets_[bucket];
        if (seen >= wanted) return std::min(highest_, Microseconds(static_cast<int64_t>(top_of(bucket))));
    }
    return Microseconds{0};
}

}  // namespace zelhost
