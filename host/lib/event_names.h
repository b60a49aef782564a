// Incoming events as people read them.
#pragma once

#include "platform/event_ids.h"

namespace zelhost {

// Words for people alone. Ids that the plug-in does not know may come, too, and have no row.
struct EventName {
    EVENT_ID id;
    const char* name;
};
inline constexpr EventName kEventNames[] = {
    {event_id::unprocessed, "not processed"},     {event_id::ioc, "IOC: DNS hit"},
    {event_id::ioa_alert, "IOA alert"},           {event_id::memory_trojan, "memory Trojan"},
    {event_id::port_scan, "port scan"},           {event_id::brute_force, "brute force"},
    {event_id::abnormal_login, "abnormal login"}, {event_id::credible_event, "credible event"},
    {event_id::event_detect, "event detection"},  {event_id::kov, "KOV alert"},
    {event_id::trc_ex, "expand a chain"},         {event_id::ignored, "not handled"},
};

// Empty for an id that is not in the table.
// The text lives as long as the process.
constexpr const char* event_name(EVENT_ID id) {
    for (const EventName& event : kEventNames)
        if (event.id == id) return event.name;
    return "";
}

}  // namespace zelhost
