// Compares what the plug-in gives out in a replay with what the record has. Messages of one kind and one worker are
// matched in their order; workers may come in another order among each other.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "record.pb.h"

namespace zelhost {

// Any thread.
class Comparison {
public:
    // What the record has, with its time in microseconds since the record began.
    void expect(record::Output output, int64_t at_us);
    // What the replay gives out.
    void take(record::Output output);

    // After both are complete. Whether all that came is what the record has, and nothing is missing. What comes after
    // the end of a record that was cut short is no difference.
    bool equal(bool cut_short) const;
    // The result for people: what was compared, and the first difference field by field.
    std::string text(bool cut_short) const;

private:
    // Worker and kind, in words.
    using Stream = std::pair<std::string, std::string>;
    struct Matches {
        uint64_t equal = 0, different = 0;
        std::deque<std::pair<record::Output, int64_t>> expected;
        std::deque<record::Output> taken;
    };

    static Stream stream_of(const record::Output& output);
    void match(const Stream& stream, Matches& matches);

    mutable std::mutex mutex_;  // guards all below
    std::map<Stream, Matches> streams_;
    std::string first_;  // the first difference; empty without one
};

}  // namespace zelhost
