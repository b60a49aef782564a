// Tells whether an alert is a copy of one seen in the last minute or so. Alarm worker only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>

#include "decode/records.h"

namespace ResHdlAlert {

class AlertFilter {
public:
    // The one filter, made at the first call: its first period begins then. Ends with the library.
    static AlertFilter& GetInstance();
    // Where the one filter is made. Who uses the filter in its destructor touches the place in its constructor.
    static std::optional<AlertFilter>& place();

    // Times are milliseconds of the tick clock.
    explicit AlertFilter(uint64_t now) : last_clean_ms_(now) {}
    virtual ~AlertFilter() = default;

    // True for a repeat; otherwise the alert is remembered. An alert without any key is new and not remembered.
    bool CheckRepeat(const ST_BUF_DATA& stData, uint64_t now);
    // Forgets the alert that the last call has remembered, if it has: it was not reported after all.
    void ForgetLast();

    // Rule ids and images of the alert, in byte order, nothing between them.
    static std::string cal_alert_key(const ST_BUF_DATA& stData);

private:
    void clean_if_due(uint64_t now);

    std::unordered_set<std::string> cache_;
    std::optional<std::unordered_set<std::string>::iterator> last_;  // what the last call has remembered
    uint64_t last_clean_ms_;
};

}  // namespace ResHdlAlert
