// The exported C functions. Each is noexcept: memory that runs out ends the process here.
#include <type_traits>

#include "bus.h"
#include "bus_codes.h"
#include "frame.h"
#include "platform/event_ids.h"

#define LUMMB_EXPORT extern "C" __attribute__((visibility("default")))

// The one function that the plug-in looks up. There is no other class than the frame.
LUMMB_EXPORT int32_t DllGetClassObject(const InterfaceId* class_id, const InterfaceId* iid, void** out) noexcept {
    if (out == nullptr) return kNullPointer;
    *out = nullptr;
    if (class_id == nullptr || !(*class_id == kNoClassId)) return kNoSuchClass;
    if (iid == nullptr || !(*iid == kIidRtmFrame)) return kNoInterface;
    *out = hand_out_frame();
    return kOk;
}

// The event is made only after it has its place in the inbox.
LUMMB_EXPORT int32_t lummb_publish(uint32_t event_id, const char* data, uint64_t size) noexcept {
    Bus& bus = Bus::instance();
    const int32_t answer = bus.reserve(event_id);
    if (answer == LUMMB_OK) bus.deliver_later(new IncomingEvent(event_id, make_buffer_payload(event_id, data, size)));
    return answer;
}

LUMMB_EXPORT int32_t lummb_publish_dns(const ST_DNS_NATIVE* record, const char* query_name) noexcept {
    Bus& bus = Bus::instance();
    const int32_t answer = bus.reserve(event_id::ioc);
    if (answer == LUMMB_OK) bus.deliver_later(new IncomingEvent(event_id::ioc, make_dns_payload(*record, query_name)));
    return answer;
}

// The rest passes on to the one bus.
LUMMB_EXPORT uint64_t lummb_subscribe(uint32_t event_id, lummb_sink_t sink, void* context) noexcept {
    return Bus::instance().subscribe(event_id, sink, context);
}

LUMMB_EXPORT void lummb_unsubscribe(uint64_t token) noexcept { Bus::instance().unsubscribe(token); }

LUMMB_EXPORT void lummb_set_order(const lummb_order* order) noexcept {
    Bus::instance().set_order(order == nullptr ? lummb_order{} : *order);
}

LUMMB_EXPORT void lummb_set_inbox_limit(uint64_t limit) noexcept { Bus::instance().set_inbox_limit(limit); }

LUMMB_EXPORT void lummb_get_counts(lummb_counts* counts) noexcept { *counts = Bus::instance().counts(); }

// A host casts what it resolves by name to these types, so the compiler checks them here.
static_assert(std::is_convertible_v<decltype(&DllGetClassObject), MbFrame::DllGetClassObject_t>);
static_assert(std::is_convertible_v<decltype(&lummb_publish), lummb_publish_t>);
static_assert(std::is_convertible_v<decltype(&lummb_publish_dns), lummb_publish_dns_t>);
static_assert(std::is_convertible_v<decltype(&lummb_subscribe), lummb_subscribe_t>);
static_assert(std::is_convertible_v<decltype(&lummb_unsubscribe), lummb_unsubscribe_t>);
static_assert(std::is_convertible_v<decltype(&lummb_set_order), lummb_set_order_t>);
static_assert(std::is_convertible_v<decltype(&lummb_set_inbox_limit), lummb_set_inbox_limit_t>);
static_assert(std::is_convertible_v<decltype(&lummb_get_counts), lummb_get_counts_t>);
