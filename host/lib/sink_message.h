// A message on its way from a run to a message server. It is shared by the threads of the sink and does not change
// once it was handed over.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace zelhost {

struct SinkMessage {
    int64_t number = 0;   // its place in the order of all messages of a buffer, also over several runs
    int64_t time_ms = 0;  // when it was handed over, in milliseconds since 1970
    uint32_t kind = 0;    // the id of the outgoing event
    uint32_t source = 0;  // the event that it stems from; 0 when it is not known
    std::string agent;    // the agent's id as a token of a subject
    std::string id;       // the same whenever it is sent, and no other message has it
    std::string payload;
};
using SharedMessage = std::shared_ptr<const SinkMessage>;

}  // namespace zelhost
