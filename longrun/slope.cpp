#include "longrun/slope.h"

#include <cmath>
#include <limits>

namespace zelhost {

Slope slope_of(std::span<const Sample> samples) {
    const auto count = static_cast<double>(samples.size());
    if (samples.size() < 3) return {0, std::numeric_limits<double>::infinity()};
    Sample mean{};
    for (const Sample& sample : samples) {
        mean.at += sample.at / count;
        mean.value += sample.value / count;
    }
    double spread = 0;
    double common = 0;
    for (const Sample& sample : samples) {
        spread += (sample.at - mean.at) * (sample.at - mean.at);
        common += (sample.at - mean.at) * (sample.value - mean.value);
    }
    const double slope = common / spread;
    double left = 0;
    for (const Sample& sample : samples) {
        const double miss = sample.value - mean.value - slope * (sample.at - mean.at);
        left += miss * miss;
    }
    return {slope, std::sqrt(left / (count - 2) / spread)};
}

}  // namespace zelhost
