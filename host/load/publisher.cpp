#include "host/load/publisher.h"

#include <algorithm>
#include <thread>

#include "host/load/due_times.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;

// The destructor of a load joins its threads, and a thread in a long sleep cannot be woken.
// Who ends a load waits that long at most for a publisher that sleeps.
constexpr Publisher::Clock::duration kLongestRest = 50ms;

}  // namespace

Publisher::Publisher(Session& session, const Events& events, uint32_t number, DueTimes* due_times)
    : session_(session),
      due_times_(due_times),
      mixture_(*this, events.seed, number, events.mix, events.per_rule),
      random_(events.seed + number) {}

void Publisher::begin(const Pace& pace) {
    // What was published before does not count for the new pace: due times run from now on.
    pace_ = pace;
    begin_ = Clock::now();
    since_begin_ = 0;
    latest_ = {};
}

// Of the next event. In groups and flat out an event is due when it is published.
// A group is a matter of chance, so there is no time that an event of it could be late for.
Publisher::Clock::time_point Publisher::due_time() const {
    if (pace_.per_second == 0 || pace_.bursts) return Clock::now();
    const std::chrono::duration<double> after(static_cast<double>(since_begin_) / pace_.per_second);
    return begin_ + std::chrono::duration_cast<Clock::duration>(after);
}

// Mostly a few events, now and then more than a queue takes.
uint64_t Publisher::draw_group() {
    // One group in twenty has 400 events, the others 1 to 30. The mean of both gives the rest that
    // keeps the rate.
    const uint32_t count = below(random_, 20) == 0 ? 400 : 1 + below(random_, 30);
    constexpr double kMeanGroup = 0.05 * 400 + 0.95 * 15.5;
    const double longest_rest_us = 2 * kMeanGroup / pace_.per_second * 1e6;
    // The mean of an even draw is half its limit, so twice the mean rest is the limit.
    rest_ = std::chrono::microseconds(below(random_, static_cast<uint32_t>(longest_rest_us) + 1));
    return count;
}

uint64_t Publisher::due() const {
    // Without a pace there is always more to publish. The turn bounds it.
    if (pace_.per_second == 0) return UINT64_MAX;
    // The first event is due at the begin itself, hence the 1.
    const std::chrono::duration<double> gone = Clock::now() - begin_;
    return static_cast<uint64_t>(gone.count() * pace_.per_second) + 1 - since_begin_;
}

uint64_t Publisher::turn(uint64_t most) {
    // A turn is bounded, because a load that is to be paused waits for its end.
    const uint64_t count = pace_.bursts ? draw_group() : std::min({due(), most, kMostInATurn});
    for (uint64_t i = 0; i < count; ++i) {
        // Lateness is measured before the event is made. So the time that the generator takes shows
        // in the next event.
        if (!pace_.bursts) latest_ = std::max(latest_, Clock::now() - due_time());
        mixture_.make_one();
        ++since_begin_;
    }
    published_ += count;
    return count;
}

void Publisher::rest() const {
    // A group has drawn its rest already, and it is short.
    if (pace_.bursts) return std::this_thread::sleep_for(rest_);
    const Clock::duration left = due_time() - Clock::now();
    if (left > 0ns) std::this_thread::sleep_for(std::min(left, kLongestRest));
}

// Noted before it is published: the report may be quicker than this thread.
void Publisher::take(uint32_t event_id, const char* data, uint64_t size, uint64_t number) {
    if (due_times_ != nullptr && number != kNoNumber) due_times_->note(number, due_time());
    session_.publish(event_id, data, size);
}

void Publisher::take(const ST_DNS_NATIVE& record, const char* query_name) { session_.publish(record, query_name); }

}  // namespace zelhost
