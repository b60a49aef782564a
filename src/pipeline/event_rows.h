// What the plug-in does with each event that can come from the bus: one row for each id. Intake and dispatch read the
// rows; a test holds the two subscription tables against them.
#pragma once

#include <memory>
#include <span>

#include "common/queue_nodes.h"

class CReshdlWork;

// The data of one event on its way into a node. `native` is borrowed from the event; `dns` owns the copy of a DNS hit
// that the bus thread has made. Only one of them is set.
struct Incoming {
    const void* native = nullptr;
    std::unique_ptr<ST_IOC_MSG> dns;
};

// One kind of event. Constant, so any thread may read it.
struct EventRow {
    EVENT_ID id;
    bool subscribed;       // in full operation
    bool subscribed_pure;  // in pure mode
    bool carries_buffer;   // its native data is a buffer
    // Makes a node on the bus thread, or returns null after a log line. It takes a DNS hit over only when it has a node
    // for it. Without this function intake refuses the event.
    NodePtr (*build)(Incoming& incoming, EVENT_ID id);
    // Runs on the alarm worker and owns the node. Without this function the event is ignored, and its node stays
    // allocated.
    void (CReshdlWork::*handle)(NodePtr node);
    const char* name;  // shown in the line "start handle"; when null, the line shows the id
};

// The rows live as long as the process.
std::span<const EventRow> event_rows();

// Null for an id that no row knows.
const EventRow* find_event_row(EVENT_ID id);
