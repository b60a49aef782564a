// The settings of the pipeline: section "config" of zelreshdl.ini and a flag file. Read at a start; any thread may look
// at them at any time, and a late look is harmless.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "common/relaxed.h"
#include "common/setting.h"

struct Settings {
    using Value = std::atomic<uint64_t>;

    Value uQueueMax{0};           // limit of each queue, also set live
    Value uInterval{0};           // milliseconds of idle sleep
    Value uTrcSleep{0};           // read, without effect
    Value uAlertFilterSwitch{1};  // 0 turns the repeat filter off
    Value uTraceVal{0};           // percent of uQueueMax
    Value uTrcTime{0};            // read and logged, without effect
    Value uTrcTimes{0};           // highest try count; 0 turns tracing off
    Value uIoaMatchQueueSize{1000};
    Value uDisableScanScenarioLimit{100};

    // Reads all of them and writes one INFO line. Throws std::bad_alloc; what was read until then is set.
    void load();
};

struct SettingRow {
    zel::Setting setting;
    Settings::Value Settings::* goes_to;
};
std::span<const SettingRow> setting_rows();
