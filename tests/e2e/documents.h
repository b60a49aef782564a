// Alert documents, DNS hits and GUIDs that tests are made of.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "host/lib/alert.h"
#include "platform/native_payloads.h"

namespace e2e {

// Named here as the tests call them.
using zelhost::Alert;
using RawEvent = zelhost::AlertEvent;
using Rule = zelhost::AlertRule;
inline std::string guid(int number) { return zelhost::guid_text(static_cast<uint64_t>(number)); }

struct DnsHit {
    std::string domain = "bad.example";
    uint32_t pid = 77;
    uint64_t time = 5000;
    std::string query_name = "bad.example";
    std::string path = "/usr/bin/curl";

    // Hands over the native record, which is valid during the call.
    void give(const std::function<void(const ST_DNS_NATIVE&, const char* query_name)>& take) const;
};

}  // namespace e2e
