// What an incoming event carries: its native record and all that the record points to. The event owns it.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/native_payloads.h"

class Payload {
public:
    virtual ~Payload() = default;
    // The record, as the plug-in gets it from GetNativeEvent.
    virtual void* native() = 0;
    // Whether the event answers IDnsEvent, and with which query name.
    virtual bool is_dns() const { return false; }
    virtual const char* query_name() const { return nullptr; }
};

// A JSON buffer for id 1536, a common buffer for all others. The bytes are copied to a block of exactly their size, so
// a reader that runs over the end meets a checker.
std::unique_ptr<Payload> make_buffer_payload(uint32_t event_id, const char* data, uint64_t size);

// Copies the record deep, see lummb_publish_dns_t.
std::unique_ptr<Payload> make_dns_payload(const ST_DNS_NATIVE& record, const char* query_name);
