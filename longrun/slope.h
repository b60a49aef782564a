// The straight line through measurements that scatter.
#pragma once

#include <span>

namespace zelhost {

struct Sample {
    double at;
    double value;
};

struct Slope {
    double slope;  // value for each unit of `at`
    double error;  // standard error of the slope; infinite for fewer than three samples
};
// By least squares.
Slope slope_of(std::span<const Sample> samples);

}  // namespace zelhost
