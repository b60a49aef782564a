// The connection of a sink to a message server that keeps what it takes.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "host/lib/nats_server.h"
#include "host/lib/sink_link.h"

namespace zelhost {

// Connects, again after each break, and publishes on a thread of its own, which may wait for the network. Another
// thread hears the server's answers. The news come on either.
class NatsLink : public SinkLink {
public:
    using Tell = std::function<void(LinkNews)>;

    // Both threads end with the object; `tell` must not throw.
    // The options are borrowed and must outlive the link. `subject` is what all subjects begin
    // with.
    NatsLink(const NatsOptions& options, std::string subject, Tell tell);
    ~NatsLink() override;

    // Never waits for the network. What cannot be sent is told as news later.
    void send(SharedMessage message) override;

private:
    // The body of the thread: one connection after the other.
    void work(const std::stop_token& stop);
    // Until the connection breaks or the link ends.
    void serve(const std::stop_token& stop, natsConnection* connection);
    // Both are called while a connection stands.
    void publish(natsConnection* connection, const std::string& inbox, const SinkMessage& message);
    void hear(const std::stop_token& stop, natsSubscription* answers);

    const NatsOptions& options_;
    const std::string subject_;
    const Tell tell_;
    // Who sends and both threads meet here.
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<SharedMessage> to_send_;  // under the mutex
    bool broken_ = false;                // likewise
    std::jthread thread_;                // the last, so that it is joined before the others end
};

}  // namespace zelhost
