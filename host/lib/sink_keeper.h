// Decides what becomes of each message of a sink: sent at once, kept in the buffer, sent from there, shed. It has no
// thread and no clock of its own.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/lib/sink_account.h"
#include "host/lib/sink_link.h"
#include "host/lib/sink_store.h"

namespace zelhost {

// A message that comes while the server takes what it is sent stays in memory until it is acknowledged. When too many
// wait for that, or when the server is away, it goes into the buffer; so do those that were on their way when the
// connection broke. What is in the buffer is sent first, the oldest at first.
//
// Store and link are borrowed. One thread at a time. Nothing throws but for want of memory: a buffer that cannot be
// written costs messages, which are counted.
class SinkKeeper {
public:
    // The moment of a call. The steady clock measures waits, and the time of day measures the age
    // of messages.
    struct Now {
        std::chrono::steady_clock::time_point steady;
        int64_t time_ms = 0;  // since 1970, as messages have it
    };

    SinkKeeper(SinkStore& store, SinkLink& link, std::chrono::hours longest_age);

    // New messages, in the order of their numbers.
    void take(const std::vector<SharedMessage>& messages, Now now);
    // One piece of news of the link.
    void hear(const LinkNews& news, Now now);
    // Once in a while, and after each of the above.
    void tick(Now now);
    // Puts what is in memory into the buffer.
    void end();

    // Whether everything has its end.
    bool is_empty() const { return window_.empty() && store_.count() == removals_.size(); }
    // Whether there is hope that a message is acknowledged soon. Before the first news there is.
    bool has_hope(Now now) const { return state_ != State::down && now.steady >= paused_until_; }
    // Its part of the account: all but what has not been taken yet.
    const SinkAccount& account(Now now);

private:
    enum class State { unknown, up, down };
    // A message that was sent and has no answer yet. `stored` says that it lies in the buffer as
    // well.
    struct Waiting {
        SharedMessage message;
        bool stored;
        std::chrono::steady_clock::time_point sent;
    };

    // Whether one more message may be sent now.
    bool has_room(Now now) const;
    // Messages of the buffer that are neither on their way nor at their end.
    uint64_t unsent() const { return store_.count() - removals_.size() - stored_in_window_; }
    void send(const SharedMessage& message, bool stored, Now now);
    void send_from_store(Now now);
    void store(const std::vector<SharedMessage>& messages);
    // Takes a message out of the window; false when it is not there.
    bool close(int64_t number);
    // Nothing is on its way any more: all that was goes back to, or into, the buffer.
    void spill();
    // The server does not take messages at the moment. Nothing is sent for a while.
    void pause(const std::string& reason, Now now);
    void remove_ended();
    // Sheds what is too old, and notices when answers are missing.
    void look_after_time(Now now);
    void say(const std::string& reason);
    void say_refusal(const std::string& reason);
    // Does something with the store, and says why it failed; false then.
    template <class Act>
    bool try_store(Act act);

    SinkStore& store_;
    SinkLink& link_;
    const std::chrono::hours longest_age_;

    // Until the first news of the link it is not known whether there is a server.
    State state_ = State::unknown;
    // Nothing is sent before this moment.
    std::chrono::steady_clock::time_point paused_until_{};
    std::chrono::steady_clock::time_point looked_{};
    bool probing_ = false;               // one message at a time, until one is acknowledged
    std::map<int64_t, Waiting> window_;  // sent and not acknowledged
    uint64_t window_bytes_ = 0;
    uint64_t stored_in_window_ = 0;
    int64_t cursor_ = 0;             // in the buffer all below this was sent
    std::vector<int64_t> removals_;  // in the buffer, but at their end
    std::string said_;               // the last trouble, until it is over
    std::string store_said_;         // the last trouble with the buffer
    std::string refusal_;            // the last one
    SinkAccount account_;
};

}  // namespace zelhost
