// The settings of the pipeline: section "config" of zelreshdl.ini, and a flag file. A start reads them. Any thread may
// read them at any time; a thread that sees an old value for a moment does no harm.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "common/relaxed.h"
#include "common/setting.h"

// While this file exists at a start, the repeat filter is off.
inline constexpr const char* kFilterOffFlag = "/root/kq-agent/alert_filter_disable_flag";

struct Settings {
    using Value = std::atomic<uint64_t>;

    // Until the first start the limit is 0, so one event is taken and a second one is refused.
    Value uQueueMax{0};                    // limit of each queue, also set live
    Value uInterval{0};                    // milliseconds that an idle worker sleeps
    Value uTrcSleep{0};                    // read, without effect
    Value uAlertFilterSwitch{1};           // 0 turns the repeat filter off
    Value uTraceVal{50};                   // percent of uQueueMax in the delay queue, from which on the stage is busy
    Value uTrcTime{0};                     // read and logged, without effect
    Value uTrcTimes{0};                    // most attempts of a trace; 0 turns tracing off
    Value uIoaMatchQueueSize{1000};        // most rule matches that are remembered
    Value uDisableScanScenarioLimit{100};  // most matches of a rule in an hour whose alerts are scanned

    // Reads all of them and writes one INFO line. Throws std::bad_alloc; what was read until then is set.
    void load();
};

// One key and the member that it sets.
struct SettingRow {
    zel::Setting setting;
    Settings::Value Settings::* goes_to;
};
// All keys of the section, for load and for tests.
std::span<const SettingRow> setting_rows();
