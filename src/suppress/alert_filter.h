// Tells whether an alert repeats one that was seen a short while ago. Alarm worker only, so there is no lock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>

#include "decode/records.h"

namespace ResHdlAlert {

class AlertFilter {
public:
    // The one filter, made at the first call; its first period begins then.
    static AlertFilter& GetInstance();
    // The place where the one filter is made. The place never ends. The owner of the alarm worker empties it when the
    // library ends, after the worker.
    static std::optional<AlertFilter>& place();

    // Times are milliseconds of the tick clock.
    explicit AlertFilter(uint64_t now) : last_clean_ms_(now) {}
    virtual ~AlertFilter() = default;

    // True for a repeat. Otherwise the alert is remembered. An alert without any key counts as new and is not
    // remembered.
    bool CheckRepeat(const ST_BUF_DATA& stData, uint64_t now);
    // Forgets the alert that the last call remembered, if it remembered one. For an alert that was not reported after
    // all: the next one like it must not count as a repeat.
    void ForgetLast();

    // Rule ids and images of the alert, each rule with its images, in byte order and with nothing between them.
    static std::string cal_alert_key(const ST_BUF_DATA& stData);

private:
    void clean_if_due(uint64_t now);

    std::unordered_set<std::string> cache_;
    std::optional<std::unordered_set<std::string>::iterator> last_;  // what the last call has remembered
    uint64_t last_clean_ms_;
};

}  // namespace ResHdlAlert
