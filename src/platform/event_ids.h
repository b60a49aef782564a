// Ids of the events that cross the bus between the agent and the plug-in, in both directions.
#pragma once

#include <cstdint>

using EVENT_ID = uint32_t;
using EVENT_ID_T = EVENT_ID;

namespace event_id {

// On-demand file traces; never on the bus.
inline constexpr EVENT_ID file_trace_process = 513;  // any kind but 1
inline constexpr EVENT_ID file_trace_file = 518;     // kind 1

// Incoming.
inline constexpr EVENT_ID unprocessed = 534;       // subscribed, refused at intake
inline constexpr EVENT_ID ioc = 1281;              // a DNS query hit
inline constexpr EVENT_ID ioa_alert = 1536;        // JSON document
inline constexpr EVENT_ID unassigned_1537 = 1537;  // not subscribed; accepted, not handled
inline constexpr EVENT_ID memory_trojan = 1538;    // JSON document in a common buffer
inline constexpr EVENT_ID unassigned_1539 = 1539;  // as 1537
inline constexpr EVENT_ID port_scan = 1540;
inline constexpr EVENT_ID brute_force = 1541;
inline constexpr EVENT_ID abnormal_login = 1542;
inline constexpr EVENT_ID credible_event = 1543;
inline constexpr EVENT_ID event_detect = 1544;
inline constexpr EVENT_ID kov = 1793;
inline constexpr EVENT_ID trc_ex = 1794;   // request to expand a chain
inline constexpr EVENT_ID ignored = 2304;  // accepted, not handled

// Outgoing; 769 and 770 are also the types of delay nodes.
inline constexpr EVENT_ID first_report = 769;
inline constexpr EVENT_ID finished_trace = 770;
inline constexpr EVENT_ID credible_report = 771;
inline constexpr EVENT_ID mem_detect = 2305;

}  // namespace event_id
