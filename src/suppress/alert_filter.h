// Tells whether an alert is a copy of one seen in the last minute or so. Alarm worker only.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>

#include "decode/records.h"

namespace ResHdlAlert {

class AlertFilter {
public:
    static AlertFilter& GetInstance();
    AlertFilter();
    virtual ~AlertFilter() = default;

    // True for a repeat; otherwise the alert is remembered. An alert without any key is new and not remembered.
    bool CheckRepeat(const ST_BUF_DATA& stData);

    // Rule ids and images of the alert, in byte order, nothing between them.
    static std::string cal_alert_key(const ST_BUF_DATA& stData);

private:
    void clean_if_due();

    std::unordered_set<std::string> cache_;
    uint64_t last_clean_ms_;  // zel_time_get_tick_cout
};

}  // namespace ResHdlAlert
