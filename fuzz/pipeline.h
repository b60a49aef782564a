// The alert stage of the plug-in without threads, bus and agent: an event goes in at its row of event_rows(), and what
// it brings out is kept. The trace module is one that answers with its input; traces are turned off.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pipeline/reshdlwork.h"
#include "platform/native_payloads.h"

namespace fuzz {

// An event that was sent.
struct Sent {
    EVENT_ID id = 0;
    EVENT_ID source = 0;  // 0 for a memory check
    std::string guid;
    std::string bytes;  // the message; of a memory check its numbers and texts, with a bar before each

    bool operator==(const Sent&) const = default;
};

// The native record of an event with this payload. It borrows the payload.
class Native {
public:
    Native(EVENT_ID id, const char* data, uint64_t size);
    Incoming incoming() const { return {document_ ? static_cast<const void*>(&*document_) : &common_, nullptr}; }

private:
    std::optional<ST_JSON_BUFFER> document_;
    ST_COMMON_BUFFER common_;
};

// What an event became: nothing when intake refused it or its handling was given up.
struct Outcome {
    bool taken = false;      // intake made a node of it
    bool given_up = false;   // an exception ended its handling
    std::vector<Sent> sent;  // in order
};

// Runs one event to its end on this thread, in a pipeline of its own. Repeat filter, hot cache and decoder are those of
// the process.
Outcome run_event(EVENT_ID id, Incoming incoming);
// Takes what was sent since the last call of either function.
std::vector<Sent> take_sent();

// The monotonic clock and the ticks stand still but for this.
void advance(std::chrono::milliseconds by);
// So long that the repeat filter has forgotten what it has seen.
inline constexpr std::chrono::milliseconds kFilterPeriod = std::chrono::minutes(1);

}  // namespace fuzz
