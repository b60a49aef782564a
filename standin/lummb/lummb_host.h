// What the bus stand-in offers a host program beside the agent's own DllGetClassObject: it publishes events to plug-ins
// and shows what plug-ins send. C linkage. A host resolves the functions by name from the loaded library. Any thread,
// unless stated otherwise.
#pragma once

#include <stdint.h>

#include "platform/mbframe.h"
#include "platform/native_payloads.h"

extern "C" {

enum : int32_t {
    LUMMB_OK = 0,
    LUMMB_NOT_SUBSCRIBED = 1,  // no attached plug-in has the event's id in its table; nothing was queued
    LUMMB_FULL = 2,            // the inbox is at its limit; nothing was queued, try again later
};

// Queues an event for the dispatch thread. The data is copied. The payload is a JSON buffer for id 1536; for all others
// it is a common buffer with the id as its type. With a null `data` the record has a null pointer and this size.
// Answers one of the codes above.
typedef int32_t (*lummb_publish_t)(uint32_t event_id, const char* data, uint64_t size);

// Queues event 1281. The record is copied with all its texts and with the variant record that uKind names. For an
// unknown kind a variant pointer that is set stays set, but nothing behind it may be read. The event answers IDnsEvent
// with `query_name`, which may be null.
typedef int32_t (*lummb_publish_dns_t)(const ST_DNS_NATIVE* record, const char* query_name);

// Calls `sink` on the dispatch thread for each event with this id that a plug-in sends. The event is valid during the
// call; AddRef keeps it. Several sinks may share an id. lummb_subscribe answers a token for lummb_unsubscribe, which is
// never 0.
typedef void (*lummb_sink_t)(void* context, MbFrame::IEvent* event);
typedef uint64_t (*lummb_subscribe_t)(uint32_t event_id, lummb_sink_t sink, void* context);
// When this returns, no call of the sink is running and none will come. A sink must not call it.
typedef void (*lummb_unsubscribe_t)(uint64_t token);

// Lets a host put events in order. A function that is null leaves the bus as it is.
struct lummb_order {
    void* context;
    // On the dispatch thread, when something waits: what goes next, LUMMB_INCOMING or LUMMB_SENT. The bus waits for it.
    // LUMMB_EITHER leaves the choice to the bus, which takes what plug-ins have sent first.
    int32_t (*choose)(void* context);
    // On the dispatch thread, before a plug-in gets an event and after it has had it.
    void (*before_delivery)(void* context);
    void (*after_delivery)(void* context);
    // On the thread of a plug-in that sends an event. It has to call `enqueue(argument)` once, which puts the event
    // behind those that were sent before.
    void (*send)(void* context, void (*enqueue)(void* argument), void* argument);
};
enum : int32_t { LUMMB_EITHER = 0, LUMMB_INCOMING = 1, LUMMB_SENT = 2 };
// A host sets the functions while nothing is published or sent; null takes them off.
typedef void (*lummb_set_order_t)(const struct lummb_order* order);

// Sets how many events may wait for plug-ins; 1024 at first. Events that plug-ins send are never refused.
typedef void (*lummb_set_inbox_limit_t)(uint64_t limit);

// All figures are of one moment, but for `alive`, `late` and `frames`. The bus is idle when `waiting` and `sending` are
// 0. While `sending` is above 0 the bus holds event objects of plug-ins, so their libraries must stay loaded.
struct lummb_counts {
    uint64_t waiting;    // events that wait for plug-ins, the one being delivered included
    uint64_t published;  // accepted by lummb_publish and lummb_publish_dns
    uint64_t refused;    // LUMMB_FULL
    uint64_t delivered;  // calls of OnEvent that returned; an event counts once for each plug-in
    uint64_t discarded;  // waited when the last plug-in that wanted them unadvised
    uint64_t sent;       // events that plug-ins sent
    uint64_t sending;    // of these, not yet given to all subscribers
    uint64_t alive;      // incoming event objects not yet released for the last time
    uint64_t late;       // calls of Release or AddRef on an incoming event or the frame when its count stood at 0
    uint64_t frames;     // references to the frame object that are not given back
};
typedef void (*lummb_get_counts_t)(lummb_counts* counts);

}  // extern "C"
