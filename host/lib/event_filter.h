// Which of the things that the plug-in gives out a run shows.
#pragma once

#include <cstdint>
#include <set>

#include "platform/event_ids.h"
#include "platform/native_payloads.h"

namespace zelhost {

// The outgoing events that can be asked for.
inline constexpr EVENT_ID kOutgoing[] = {event_id::first_report, event_id::finished_trace, event_id::credible_report,
                                         event_id::mem_detect};

// What is set holds together. A default filter lets everything through. Any thread may ask.
// Set once before the session and only read afterwards.
struct EventFilter {
    std::set<EVENT_ID> events;  // empty: all
    int lowest_level = 0;       // VORN_RISK_LEVEL of an alert

    bool wants(const ST_PB_EVENT& event) const;
    bool wants_memory_check() const;
    // An answer to an on-demand trace is no event, and is an alert if its message says so.
    bool wants_answer(const char* buffer, uint32_t size) const;
    // A report, or a remark of the log.
    bool wants_the_rest() const { return events.empty() && lowest_level == 0; }
};

}  // namespace zelhost
