#include "pipeline/settings.h"

#include "common/log.h"
#include "common/module_path.h"
#include "platform/zel_support.h"

namespace {

// A missing key reads as 0, and 0 is tested against the limits. So only a key whose lowest value is above 0 falls back
// to its default; every other key is 0 then. So a file without "trc_times" turns tracing off.
constexpr SettingRow kRows[] = {
    {{zel::kPluginSettings, "config", "queue_max", 100, 50, 500, 0}, &Settings::uQueueMax},
    {{zel::kPluginSettings, "config", "interval", 5, 1, 10000, 0}, &Settings::uInterval},
    {{zel::kPluginSettings, "config", "trc_sleep", 10, 0, 300, 0}, &Settings::uTrcSleep},
    {{zel::kPluginSettings, "config", "trace_val", 50, 0, 100, 10}, &Settings::uTraceVal},
    {{zel::kPluginSettings, "config", "trc_time", 15, 0, 60, 10}, &Settings::uTrcTime},
    {{zel::kPluginSettings, "config", "trc_times", 8, 0, 16, 10}, &Settings::uTrcTimes},
    {{zel::kPluginSettings, "config", "ioa_match_queue_size", 1000, 0, 10000, 10}, &Settings::uIoaMatchQueueSize},
    {{zel::kPluginSettings, "config", "disable_scan_scenario_limit", 100, 0, 10000, 10},
     &Settings::uDisableScanScenarioLimit},
};

}  // namespace

std::span<const SettingRow> setting_rows() { return kRows; }

void Settings::load() {
    const std::string file = zel::module_path(zel::kPluginSettings);
    for (const SettingRow& row : kRows)
        (this->*row.goes_to).store(zel::read_setting(row.setting, file), std::memory_order_relaxed);
    // The flag file is looked up at a start only.
    const bool filter_off = zel_path_is_exist_u(zel::module_path(kFilterOffFlag).c_str()) != 0;
    uAlertFilterSwitch.store(filter_off ? 0 : 1, std::memory_order_relaxed);
    // trc_sleep has never been part of this line.
    LOG_INFO(
        "queue max:%lu, interval:%lu, trace val:%lu, trc time:%lu, trc times:%lu, ioa match queue size:%lu, "
        "disable scan scenario limit:%lu, alert_filter_switch:%lu",
        value_of(uQueueMax), value_of(uInterval), value_of(uTraceVal), value_of(uTrcTime), value_of(uTrcTimes),
        value_of(uIoaMatchQueueSize), value_of(uDisableScanScenarioLimit), value_of(uAlertFilterSwitch));
}
