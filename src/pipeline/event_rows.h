// What the plug-in does with each event that can come from the bus: one row an id. Subscription, intake and dispatch
// read the rows.
#pragma once

#include <memory>
#include <span>

#include "common/queue_nodes.h"

class CReshdlWork;

// The data of one event on its way into a node: borrowed from the event, or, for a DNS hit, the copy that the bus thread
// has made.
struct Incoming {
    const void* native = nullptr;
    std::unique_ptr<ST_IOC_MSG> dns;
};

struct EventRow {
    EVENT_ID id;
    bool subscribed;       // in full operation
    bool subscribed_pure;  // in pure mode
    bool carries_buffer;   // its native data is a buffer
    // Makes a node; null after a log line. A DNS hit is taken over only by a node. No function: refused at intake.
    NodePtr (*build)(Incoming& incoming, EVENT_ID id);
    // Runs on the alarm worker and owns the node. No function: the event is ignored, and its node stays allocated.
    void (CReshdlWork::*handle)(NodePtr node);
    const char* name;  // in the line "start handle %s!"; null: the id
};

std::span<const EventRow> event_rows();

// Null for an id that nobody knows.
const EventRow* find_event_row(EVENT_ID id);
