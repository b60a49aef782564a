// The settings of the pipeline: section "config" of zelreshdl.ini.
#include "common/common.h"
#include "common/log.h"
#include "common/module_path.h"
#include "pipeline/reshdlwork.h"

// A missing key reads as 0, and 0 is tested against the limits: only keys with a lowest value above 0 fall back to
// their default then, all others are 0.
struct CReshdlWork::SettingRow {
    const char* key;
    bool decimal;  // read by IniGetDoubleExA, otherwise by IniGetUintExA
    uint32_t otherwise;
    uint32_t lowest;
    uint32_t highest;
    Setting CReshdlWork::* member;
};

constexpr CReshdlWork::SettingRow CReshdlWork::kSettingRows[] = {
    {"queue_max", false, 100, 50, 500, &CReshdlWork::m_uQueueMax},
    {"interval", false, 5, 1, 10000, &CReshdlWork::m_uInterval},
    {"trc_sleep", false, 10, 0, 300, &CReshdlWork::m_uTrcSleep},
    {"trace_val", true, 50, 0, 100, &CReshdlWork::m_uTraceVal},
    {"trc_time", true, 15, 0, 60, &CReshdlWork::m_uTrcTime},
    {"trc_times", true, 8, 0, 16, &CReshdlWork::m_uTrcTimes},
    {"ioa_match_queue_size", true, 1000, 0, 10000, &CReshdlWork::m_uIoaMatchQueueSize},
    {"disable_scan_scenario_limit", true, 100, 0, 10000, &CReshdlWork::m_uDisableScanScenarioLimit},
};

void CReshdlWork::LoadIni() {
    const std::string file = zel::module_path("@/../config/zelreshdl.ini");
    for (const SettingRow& row : kSettingRows) {
        const unsigned long value =
            row.decimal
                ? CltCommon::IniGetDoubleExA("config", row.key, row.otherwise, row.lowest, row.highest, file.c_str())
                : CltCommon::IniGetUintExA("config", row.key, row.otherwise, row.lowest, row.highest, file.c_str());
        (this->*row.member).store(value, std::memory_order_relaxed);
    }
    const std::string flag = zel::module_path("/root/kq-agent/alert_filter_disable_flag");
    m_uAlertFilterSwitch.store(zel_path_is_exist_u(flag.c_str()) != 0 ? 0 : 1, std::memory_order_relaxed);

    const auto value = [](const Setting& setting) {
        return static_cast<unsigned long>(setting.load(std::memory_order_relaxed));
    };
    LOG_INFO(
        "queue max:%lu, interval:%lu, trace val:%lu, trc time:%lu, trc times:%lu, ioa match queue size:%lu, "
        "disable scan scenario limit:%lu, alert_filter_switch:%lu",
        value(m_uQueueMax), value(m_uInterval), value(m_uTraceVal), value(m_uTrcTime), value(m_uTrcTimes),
        value(m_uIoaMatchQueueSize), value(m_uDisableScanScenarioLimit), value(m_uAlertFilterSwitch));
}

void CReshdlWork::SetQueueMax(uint32_t uQueueMax) {
    if (uQueueMax != 0) m_uQueueMax.store(uQueueMax, std::memory_order_relaxed);
}
