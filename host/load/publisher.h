// Publishes the events of a mixture at a pace.
#pragma once

#include <chrono>
#include <cstdint>

#include "host/lib/session.h"
#include "host/load/mixture.h"

namespace zelhost {

class DueTimes;

// How fast one thread publishes.
struct Pace {
    // Events a second. With bursts it is the mean over many groups.
    double per_second = 0;  // 0: as fast as the bus takes the events
    // In groups of random size, each with a rest of random length behind it. A group that took long is not made up for.
    bool bursts = false;
};

// What each publisher of a load sends.
struct Events {
    uint32_t seed = 1;
    Mix mix = usual_mix();
    int per_rule = 0;  // events of each rule; 0: as the kind of the alert says
};

// Publishes in turns: whoever calls may look between two of them whether to go on.
//
// At a steady pace each event has its due time, whether those before it were on time or not. A publisher that was kept
// waiting, by the bus or by the machine, makes up for it. One thread.
class Publisher : private EventSink {
public:
    using Clock = std::chrono::steady_clock;

    // The borrowed objects must outlive the publisher.
    // Borrows the session and, if there are any, the due times. `number` is that of the mixture.
    Publisher(Session& session, const Events& events, uint32_t number, DueTimes* due_times = nullptr);

    // The next event is due now, and those after it at this pace.
    void begin(const Pace& pace);
    // Publishes what is due, at most that many events; the number of them.
    uint64_t turn(uint64_t most = kMostInATurn);
    // Sleeps until the next turn, or for a moment if that is far away.
    void rest() const;

    // How many events this publisher has published in its life.
    uint64_t published() const { return published_; }
    // How late an event was published at most, measured from its due time.
    Clock::duration latest() const { return latest_; }

private:
    // How long a turn may become, in events.
    static constexpr uint64_t kMostInATurn = 400;

    // What the mixture makes is published at once, on the caller's thread.
    void take(uint32_t event_id, const char* data, uint64_t size, uint64_t number) override;
    void take(const ST_DNS_NATIVE& record, const char* query_name) override;
    // How many events are due, and what becomes of the pace once they are published.
    // How many events should have been published by now and are not.
    uint64_t due() const;
    // Draws the size of a group and the rest behind it.
    uint64_t draw_group();
    Clock::time_point due_time() const;

    Session& session_;
    DueTimes* const due_times_;
    Mixture mixture_;
    Random random_;
    Pace pace_;
    Clock::time_point begin_;
    // Events since the last begin. Due times are counted from it.
    uint64_t since_begin_ = 0;
    uint64_t published_ = 0;
    // The longest delay since the last begin, of any event.
    Clock::duration latest_{};
    std::chrono::microseconds rest_{};  // behind a group
};

}  // namespace zelhost
