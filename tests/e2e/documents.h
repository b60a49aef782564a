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
    void give(const std::function<void(const ST_DNS_NATIVE&, const char* query_name)>& take) const {
        const ST_DNS_VARIANT_2 process{
            .uPid = pid,
            .llCreateTime = 900,
            .pszProcess = {"01234567-89ab-cdef-0123-456789abcdef", path.c_str(), "", "", "curl bad"},
            .pszDomain = domain.c_str(),
            .uDnsStatus = 3,
            .pszDnsResults = "192.0.2.1",
            .uTail = 0};
        ST_DNS_NATIVE record{};
        record.uKind = 2;
        record.ullHead[12] = time;
        record.uHead[0] = 42;
        record.pszText[0] = "repo";
        record.pszText[5] = "cid";
        record.pVariant = &process;
        take(record, query_name.c_str());
    }
};

}  // namespace e2e
