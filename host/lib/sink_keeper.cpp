#include "host/lib/sink_keeper.h"

#include <algorithm>
#include <utility>

#include "host/lib/console.h"
#include "host/lib/failure.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;

// How much may wait for the server's answer before the buffer is used: what a burst needs, not what an outage does.
// In messages and in bytes of their payloads.
constexpr size_t kWindow = 1024;
constexpr uint64_t kWindowBytes = 4 << 20;
// One change of the buffer, so that the log beside its file stays small.
// In bytes of payloads.
constexpr uint64_t kChangeBytes = 2 << 20;
// How many messages are taken from the buffer at once.
constexpr size_t kReadAtOnce = 64;
// How long the keeper waits before it tries again, after which time an answer is missed, and how
// often it looks.
constexpr auto kPause = 1s;
constexpr auto kAnswerTime = 10s;
constexpr auto kLookEvery = 1s;

}  // namespace

SinkKeeper::SinkKeeper(SinkStore& store, SinkLink& link, std::chrono::hours longest_age)
    : store_(store), link_(link), longest_age_(longest_age) {
    // What earlier runs have left in the buffer is a beginning in the account, too.
    account_.left_before = store.count();
}

// The same trouble is said once, until it is over.
void SinkKeeper::say(const std::string& reason) {
    // A person should see each cause once, and not once for each message.
    if (said_ == reason) return;
    said_ = reason;
    console::say("sink: {}; messages go to the buffer {}", reason, store_.file().string());
}

void SinkKeeper::say_refusal(const std::string& reason) {
    if (std::exchange(refusal_, reason) != reason) console::say("sink: {}; it is given up", reason);
}

// The change is undone by the store when it fails.
template <class Act>
bool SinkKeeper::try_store(Act act) {
    try {
        act();
        return true;
    } catch (const Failure& e) {
        if (std::exchange(store_said_, e.what()) != e.what()) console::say("sink: {}", e.what());
        return false;
    }
}

bool SinkKeeper::has_room(Now now) const {
    if (state_ != State::up || now.steady < paused_until_) return false;
    // A single message finds out whether the server takes any.
    if (probing_) return window_.empty();
    return window_.size() < kWindow && window_bytes_ < kWindowBytes;
}

void SinkKeeper::send(const SharedMessage& message, bool stored, Now now) {
    // It stays in the window until its answer comes, or until it goes to the buffer.
    window_.emplace(message->number, Waiting{message, stored, now.steady});
    window_bytes_ += message->payload.size();
    stored_in_window_ += stored ? 1 : 0;
    link_.send(message);
}

// The answer may be of a message that has gone to the buffer meanwhile.
bool SinkKeeper::close(int64_t number) {
    const auto found = window_.find(number);
    if (found == window_.end()) return false;
    const Waiting& waiting = found->second;
    if (waiting.stored) {
        // The message is still in the buffer. It is removed with others in one change.
        removals_.push_back(number);
        --stored_in_window_;
    }
    window_bytes_ -= waiting.message->payload.size();
    window_.erase(found);
    return true;
}

// In several changes. What one of them cannot write is lost, and counted. Nothing is tried while the disk refuses to
// remove what is at its end, so that shedding never meets such a message.
void SinkKeeper::store(const std::vector<SharedMessage>& messages) {
    remove_ended();
    for (size_t begin = 0, end = 0; begin < messages.size(); begin = end) {
        // A part is as large as one change may be. A single message may be larger.
        for (uint64_t bytes = 0; end < messages.size() && bytes < kChangeBytes; ++end)
            bytes += messages[end]->payload.size();
        const std::span part = std::span(messages).subspan(begin, end - begin);
        uint64_t shed = 0;
        if (removals_.empty() && try_store([&] { shed = store_.append(part, cursor_); })) {
            account_.spilled += part.size();
            // The oldest messages may have had to make room for these.
            account_.shed_size += shed;
        } else {
            account_.shed_disk += part.size();
        }
    }
}

// A message overtakes none that waits in the buffer.
void SinkKeeper::take(const std::vector<SharedMessage>& messages, Now now) {
    std::vector<SharedMessage> rest;
    for (const SharedMessage& message : messages)
        // The first message that does not go at once sends all behind it to the buffer, too.
        rest.empty() && unsent() == 0 && has_room(now) ? send(message, false, now) : rest.push_back(message);
    store(rest);
}

void SinkKeeper::send_from_store(Now now) {
    while (unsent() > 0 && has_room(now)) {
        std::vector<SharedMessage> messages;
        // While the server is tried, one message is enough.
        const size_t most = probing_ ? 1 : kReadAtOnce;
        if (!try_store([&] { messages = store_.read(cursor_, most, kChangeBytes); })) {
            paused_until_ = now.steady + kPause;
            return;
        }
        if (messages.empty()) return;
        for (const SharedMessage& message : messages)
            // What has its end already waits only for its removal.
            if (std::ranges::count(removals_, message->number) == 0) send(message, true, now);
        // All below this number is on its way or has its end.
        cursor_ = messages.back()->number + 1;
    }
}

void SinkKeeper::spill() {
    std::vector<SharedMessage> messages;
    for (const auto& [number, waiting] : window_)
        // Those that are stored are in the buffer still. Sending begins again with the oldest message
        // of the buffer, so they are sent again from there.
        if (!waiting.stored) messages.push_back(waiting.message);
    window_.clear();
    window_bytes_ = stored_in_window_ = 0;
    cursor_ = 0;
    store(messages);
}

// The server is asked again with one message after a while.
void SinkKeeper::pause(const std::string& reason, Now now) {
    say(reason);
    spill();
    paused_until_ = now.steady + kPause;
    probing_ = true;
}

void SinkKeeper::hear(const LinkNews& news, Now now) {
    using Kind = LinkNews::Kind;
    if (news.kind == Kind::up) {
        state_ = State::up;
        ++account_.connections;
        // The first connection of a run is not tried out.
        probing_ = account_.connections > 1;  // many hosts come back at one moment
        paused_until_ = {};
    } else if (news.kind == Kind::down) {
        state_ = State::down;
        say(news.reason);
        spill();
    } else if (news.kind == Kind::later) {
        // An answer that is about no message of the window changes nothing.
        if (news.number == 0 ? !window_.empty() : window_.contains(news.number)) pause(news.reason, now);
    } else if (close(news.number)) {
        const bool taken = news.kind == Kind::acknowledged;
        ++(taken ? account_.acknowledged : account_.refused);
        account_.known += news.known ? 1 : 0;
        // One acknowledgement is enough to trust the server again.
        probing_ = probing_ && !taken;
        if (!taken) return say_refusal(news.reason);
        if (!said_.empty()) console::say("sink: the server takes messages again, {} wait", unsent());
        said_.clear();
    }
}

// A change that fails is tried again the next time.
void SinkKeeper::remove_ended() {
    // The numbers stay in the list until the file has let them go.
    if (!removals_.empty() && try_store([&] { store_.remove(removals_); })) removals_.clear();
}

// A message that nobody answers may have been lost behind the connection, or nobody may be allowed to take it.
void SinkKeeper::look_after_time(Now now) {
    if (now.steady - looked_ < kLookEvery) return;
    looked_ = now.steady;
    // The age is counted from when the message was handed over, by the time of day.
    const int64_t oldest = now.time_ms - std::chrono::milliseconds(longest_age_).count();
    uint64_t shed = 0;
    if (unsent() > 0 && removals_.empty() && try_store([&] { shed = store_.shed_before(oldest, cursor_); }))
        account_.shed_age += shed;
    // By the steady clock, which nobody can set.
    const auto unanswered = [&](const auto& entry) { return now.steady - entry.second.sent > kAnswerTime; };
    if (std::ranges::any_of(window_, unanswered)) pause("the server does not answer", now);
}

void SinkKeeper::tick(Now now) {
    remove_ended();
    look_after_time(now);
    send_from_store(now);
}

void SinkKeeper::end() {
    spill();
    state_ = State::down;
}

const SinkAccount& SinkKeeper::account(Now now) {
    // Messages of the window that are stored as well count as buffered.
    account_.in_memory = window_.size() - stored_in_window_;
    account_.buffered = store_.count() - removals_.size();
    account_.buffer_bytes = store_.bytes();
    account_.connected = state_ == State::up;
    account_.oldest_seconds = 0;
    if (account_.buffered > 0)
        try_store([&] {
            account_.oldest_seconds =
                static_cast<double>(std::max<int64_t>(now.time_ms - store_.oldest_ms(), 0)) / 1000;
        });
    return account_;
}

}  // namespace zelhost
