#include "host/lib/nats_link.h"

#include <fmt/format.h>

#include <charconv>
#include <random>
#include <utility>

#include "host/lib/failure.h"
#include "host/lib/json_text.h"
#include "host/lib/visible.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;
using Kind = LinkNews::Kind;

// The wait after a break doubles from the first to the longest.
constexpr auto kFirstWait = 250ms;
constexpr auto kLongestWait = 30s;
// How long the hearer waits before it looks whether it is to end.
constexpr int64_t kHearMs = 200;
// The stream never takes a message of this size; all other objections may pass.
constexpr int64_t kTooLargeForStream = 10054;

// Many hosts lose a server at one moment, and must not come back at one moment.
// Between half of the time and all of it. Each thread has random numbers of its own.
std::chrono::milliseconds some_of(std::chrono::milliseconds time) {
    static thread_local std::minstd_rand random{std::random_device()()};
    return std::chrono::milliseconds(std::uniform_int_distribution<int64_t>(time.count() / 2, time.count())(random));
}

// A subject that no other client has. The server sends its answers to it.
std::string new_inbox() {
    natsInbox* inbox = nullptr;
    if (natsInbox_Create(&inbox) != NATS_OK) throw Failure("there is no memory for a connection");
    std::string text = inbox;
    natsInbox_Destroy(inbox);
    return text;
}

// {"stream":NAME,"seq":N} with "duplicate":true, or with "error":{"err_code":N,"description":TEXT}.
// What cannot be read may have been taken or not. So the message is tried again later.
LinkNews read_answer(int64_t number, natsMsg* answer) {
    try {
        const JsonText text({natsMsg_GetData(answer), static_cast<size_t>(natsMsg_GetDataLength(answer))});
        if (const JsonText::Member* error = text.find("error")) {
            const JsonText details(error->raw);
            const std::string* description = details.text("description");
            const bool never = details.whole("err_code", 0, INT64_MAX, 0) == kTooLargeForStream;
            return {never ? Kind::refused : Kind::later, number, false,
                    fmt::format("the server does not take a message: {}", visible(description ? *description : ""))};
        }
        if (text.find("seq") == nullptr) throw Failure("it has no number");
        const JsonText::Member* known = text.find("duplicate");
        return {Kind::acknowledged, number, known != nullptr && known->raw == "true"};
    } catch (const Failure& e) {
        return {Kind::later, number, false, fmt::format("the server's answer cannot be read: {}", e.what())};
    }
}

}  // namespace

// The thread begins when everything else is there.
NatsLink::NatsLink(const NatsOptions& options, std::string subject, Tell tell)
    : options_(options),
      subject_(std::move(subject)),
      tell_(std::move(tell)),
      thread_([this](const std::stop_token& stop) { work(stop); }) {}

NatsLink::~NatsLink() = default;

void NatsLink::send(SharedMessage message) {
    const std::lock_guard lock(mutex_);
    to_send_.push_back(std::move(message));
    // Only the first message wakes the thread. It takes all that have come by then.
    if (to_send_.size() == 1) changed_.notify_one();
}

// What waits for sending at a break belongs to the time before it: the sink sends it again.
void NatsLink::work(const std::stop_token& stop) {
    std::chrono::milliseconds wait = kFirstWait;
    while (!stop.stop_requested()) {
        std::string reason;
        try {
            const Nats<natsConnection> connection = options_.connect();
            // A connection that has stood once begins with a short wait again.
            wait = kFirstWait;
            serve(stop, connection.get());
            reason = "the connection to the server broke";
        } catch (const std::exception& e) {
            reason = e.what();
        }
        // The end of the link is no news.
        if (stop.stop_requested()) return;
        tell_({Kind::down, 0, false, reason});
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, stop, some_of(wait), [] { return false; });
        wait = std::min<std::chrono::milliseconds>(wait * 2, kLongestWait);
    }
}

void NatsLink::serve(const std::stop_token& stop, natsConnection* connection) {
    const std::string inbox = new_inbox();
    natsSubscription* subscription = nullptr;
    // Subscribed before anything is published. Otherwise an answer could be missed.
    natsStatus status = natsConnection_SubscribeSync(&subscription, connection, (inbox + ".*").c_str());
    const Nats<natsSubscription> answers(subscription);
    if (status == NATS_OK) status = natsConnection_Flush(connection);
    if (status != NATS_OK) throw Failure("cannot use the connection: {}", nats_reason(status));
    {
        const std::lock_guard lock(mutex_);
        // These messages are of the last connection. The keeper has taken them back.
        to_send_.clear();
        broken_ = false;
    }
    tell_({Kind::up, 0, false});
    // The hearer ends with this call, at every return.
    const std::jthread hearer([&](const std::stop_token& end) { hear(end, answers.get()); });
    std::unique_lock lock(mutex_);
    while (changed_.wait(lock, stop, [this] { return broken_ || !to_send_.empty(); }) && !broken_) {
        // The lock is not held while the network may be waited for.
        std::deque<SharedMessage> messages = std::exchange(to_send_, {});
        lock.unlock();
        for (const SharedMessage& message : messages) publish(connection, inbox, *message);
        lock.lock();
    }
    natsConnection_Close(connection);  // which ends the hearer's wait
}

// A message whose publishing fails otherwise was lost with the connection, and the hearer notices that.
void NatsLink::publish(natsConnection* connection, const std::string& inbox, const SinkMessage& message) {
    natsMsg* made = nullptr;
    const std::string subject = fmt::format("{}.{}.{}", subject_, message.kind, message.agent);
    // The number of the message comes back as the last part of the subject of its answer.
    const std::string reply = fmt::format("{}.{}", inbox, message.number);
    natsStatus status = natsMsg_Create(&made, subject.c_str(), reply.c_str(), message.payload.data(),
                                       static_cast<int>(message.payload.size()));
    const Nats<natsMsg> out(made);
    // The server knows a message that it has already by this id.
    if (status == NATS_OK) status = natsMsgHeader_Set(out.get(), "Nats-Msg-Id", message.id.c_str());
    if (status == NATS_OK) status = natsMsgHeader_Set(out.get(), "Zel-Source", std::to_string(message.source).c_str());
    if (status == NATS_OK) status = natsConnection_PublishMsg(connection, out.get());
    // Such a message can never be sent. All others wait for their answer.
    if (status == NATS_MAX_PAYLOAD)
        tell_({Kind::refused, message.number, false, "a message is larger than the server takes"});
}

// The number of a message is the last part of the subject that its answer comes on. The library keeps an answer for
// itself that says that nobody listens.
void NatsLink::hear(const std::stop_token& stop, natsSubscription* answers) {
    while (!stop.stop_requested()) {
        natsMsg* taken = nullptr;
        const natsStatus status = natsSubscription_NextMsg(&taken, answers, kHearMs);
        const Nats<natsMsg> answer(taken);
        if (status == NATS_TIMEOUT) continue;
        if (status == NATS_NO_RESPONDERS) {
            tell_({Kind::later, 0, false, fmt::format("no stream takes {}.*.*", subject_)});
            continue;
        }
        // A slow consumer has lost answers. The messages are sent again after their time.
        if (status != NATS_OK && status != NATS_SLOW_CONSUMER) break;
        if (answer == nullptr) continue;
        const std::string_view subject = natsMsg_GetSubject(answer.get());
        int64_t number = 0;
        std::from_chars(subject.data() + subject.rfind('.') + 1, subject.data() + subject.size(), number);
        tell_(read_answer(number, answer.get()));
    }
    // The sending thread is woken, since it may wait for messages.
    const std::lock_guard lock(mutex_);
    broken_ = true;
    changed_.notify_one();
}

}  // namespace zelhost
