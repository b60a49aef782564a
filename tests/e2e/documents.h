// Alert documents, DNS hits and GUIDs that tests are made of.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/native_payloads.h"

namespace e2e {

// A GUID text for a small number.
std::string guid(int number);

struct RawEvent {
    int type = 7;
    unsigned pid = 4001;
    std::string image = "/opt/tool";
    std::string keys = R"("FilePath":"/tmp/gone")";  // of the type, and any further ones
    int64_t op_time = 1000;
};

struct Rule {
    std::string id = {};  // empty: made from the alert's number, so that no alert repeats another
    std::string status = "Enable";
    std::vector<RawEvent> events = {RawEvent{}};
    std::string keys = R"("internal_id":"i")";
};

struct Alert {
    int number = 1;  // makes its GUID
    int type = 3;
    std::string container = "host";
    std::vector<Rule> rules = {Rule{}};
    std::vector<RawEvent> process_set = {};

    std::string text() const;
};

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
