// What a sink needs of a connection to a message server.
#pragma once

#include <cstdint>
#include <string>

#include "host/lib/sink_message.h"

namespace zelhost {

// What a link has to tell. A number is that of the message that it is about, 0 for one that is not known.
struct LinkNews {
    enum class Kind {
        up,            // connected; nothing is on its way
        down,          // not connected; what was on its way may have arrived or not
        acknowledged,  // the server keeps the message
        refused,       // the server will never take this message
        later,         // the server does not take it now
    };
    Kind kind = Kind::down;
    int64_t number = 0;
    bool known = false;    // of an acknowledged message: the server had it already
    std::string reason{};  // for people, where something went wrong
};

// Implemented by the connection, and by tests that play one.
class SinkLink {
public:
    virtual ~SinkLink() = default;
    // Takes a message for sending and returns at once. Any thread.
    virtual void send(SharedMessage message) = 0;
};

}  // namespace zelhost
