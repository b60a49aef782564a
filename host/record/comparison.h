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
// Holds everything that waits for its counterpart, and counts per stream what was equal and what
// differed. A difference is kept in words only for the first pair that differs.
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
    // Messages of one stream come in the same order in every replay. Messages of two streams do
    // not, so they are matched apart.
    // Worker and kind, in words.
    using Stream = std::pair<std::string, std::string>;
    // What is known of one stream. At least one of the two queues is empty: as soon as both have a
    // message, the pair is compared and leaves.
    struct Matches {
        uint64_t equal = 0, different = 0;
        std::deque<std::pair<record::Output, int64_t>> expected;
        std::deque<record::Output> taken;
    };

    // Which stream a message belongs to follows from the message alone, so the record and the
    // replay agree on it.
    static Stream stream_of(const record::Output& output);
    // Compares pairs until one side has no more. The lock is held.
    void match(const Stream& stream, Matches& matches);

    mutable std::mutex mutex_;  // guards all below
    std::map<Stream, Matches> streams_;
    std::string first_;  // the first difference; empty without one
};

}  // namespace zelhost
