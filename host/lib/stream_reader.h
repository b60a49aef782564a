// Reads the messages of a stream in their order, each once.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "host/lib/nats_server.h"

namespace zelhost {

// A message of the stream. It owns its texts.
struct StreamMessage {
    uint64_t sequence = 0;  // in the stream
    uint64_t behind = 0;    // how many come after it at the moment
    // As the sink has sent them; empty when a header is missing.
    std::string subject, id, source;
    std::string payload;
};

// One connection and one reading of a stream, which ends with either. The server forgets the reader then. One thread.
class StreamReader {
public:
    // Begins with the message of that sequence. Throws Failure when there is no connection or no such stream.
    StreamReader(const NatsOptions& server, const std::string& subject, uint64_t sequence);

    // How many messages there were to be read at the beginning.
    uint64_t pending() const { return pending_; }
    // Nothing when none comes within the time. Throws Failure when the reading has broken off.
    std::optional<StreamMessage> next(std::chrono::milliseconds time);

private:
    // In the order in which they are made. They end in the opposite order.
    Nats<natsConnection> connection_;
    Nats<jsCtx> stream_;
    Nats<natsSubscription> messages_;
    uint64_t pending_ = 0;
};

// Makes a stream as the text says, a JSON object of the server's own form with a "name". Does nothing when there is one
// just like it. Throws Failure.
void create_stream(const NatsOptions& server, const std::string& json);

}  // namespace zelhost
