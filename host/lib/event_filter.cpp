#include "host/lib/event_filter.h"

#include <retrace.pb.h>

#include "host/lib/message_parse.h"

namespace zelhost {
namespace {

// A message without an alert, and one that does not parse, has no level.
// The level stands in the message alone, so the message must be parsed.
int level_of(const char* data, uint64_t size) {
    vorn_retrace::vorn_trace_info message;
    return parse_message(data, size, message) ? message.threat().risk_level() : 0;
}

}  // namespace

// The message is parsed only when somebody asks for a level.
bool EventFilter::wants(const ST_PB_EVENT& event) const {
    if (!events.empty() && !events.contains(event.uEventId)) return false;
    return lowest_level == 0 || level_of(event.pData, event.uSize) >= lowest_level;
}

// A memory check has no level, so a filter by level does not let it through.
bool EventFilter::wants_memory_check() const {
    return lowest_level == 0 && (events.empty() || events.contains(event_id::mem_detect));
}

// Whoever asks for certain events does not want answers.
bool EventFilter::wants_answer(const char* buffer, uint32_t size) const {
    return events.empty() && (lowest_level == 0 || level_of(buffer, size) >= lowest_level);
}

}  // namespace zelhost
