// The line that shows a run while it runs: queue sizes, rates and sheds.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/lib/account.h"

namespace zelhost {

// One thread. The clock comes from outside.
class StatusLine {
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit StatusLine(Time begin) : begin_(begin) {}

    // The line for this moment, with rates over the last second or so; `line` is the last one that was read.
    std::string text(Time now, uint64_t line, const Account& account);

private:
    // What was counted at one moment.
    struct Sample {
        Time time;
        uint64_t in, out, shed;
    };
    static double per_second(uint64_t before, uint64_t after, std::chrono::duration<double> time);

    const Time begin_;
    std::optional<Sample> base_;  // what the rates are reckoned from
    double in_rate_ = 0, out_rate_ = 0, shed_rate_ = 0;
};

}  // namespace zelhost
