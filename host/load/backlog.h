// What the plug-in predicts of its waiting traces, beside how long they really waited.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/lib/figures.h"

namespace zelhost {

// A prediction is the time until the last of the alerts that wait now has its trace. So the alert that was pushed last
// is followed until its end, one prediction at a time. Reads the log; one thread at a time.
class Backlog {
public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::duration<double, std::milli>;

    // Takes a line of the log. `now` is when it came.
    void line(const LogLine& line, Clock::time_point now);

    // Of the predictions that were followed to their end.
    struct Sums {
        uint64_t count = 0;
        Milliseconds predicted{0}, measured{0};  // sums
        Milliseconds highest_predicted{0}, highest_measured{0};
    };
    const Sums& sums() const { return sums_; }
    // The last prediction that was followed to its end, in `sums` as well.
    struct Pair {
        Milliseconds predicted, measured;
    };
    const std::optional<Pair>& last() const { return last_; }

private:
    // An alert whose trace has not ended, with the prediction that was made when it was the last
    // one to wait. `predicted` sinks when a pass sheds traces.
    struct Followed {
        std::string guid;
        Clock::time_point since;
        Milliseconds predicted;
    };

    // The trace of the alert with this GUID has ended.
    void end(std::string_view guid, Clock::time_point now);

    std::string waiting_last_;  // GUID of the alert that was pushed last; empty when it does not wait any more
    std::optional<Followed> followed_;
    std::optional<Pair> last_;
    Sums sums_;
};

}  // namespace zelhost
