// What a start in an agent folder would do. It takes the steps of plugin_init in their order, and leaves out what
// starts something: the SDK, the registration of the report callbacks, the attachment to the bus, the trace module, the
// workers.
#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <filesystem>
#include <memory>
#include <new>

#include "check/log_lines.h"
#include "check/module_folder.h"
#include "check/setting_reason.h"
#include "check/status_libraries.h"
#include "check/zelcheck_host.h"
#include "common/capture.h"
#include "common/pure_mode.h"
#include "common/zel_bpsdk_api.h"
#include "pipeline/settings.h"
#include "pipeline/sibling_modules.h"
#include "plugin/zelbpmgr_api.h"
#include "plugin/zelreshdl_engine.h"
#include "plugin/zelreshdl_report.h"
#include "suppress/fifoqueue.h"
#include "suppress/traceEliminator.h"

namespace zel::check {
namespace {

// Owns all that the record leads to. The record is this object itself, and its pointers lead into the members. They are
// set when all members are complete.
class Look final : public zelcheck_folder {
public:
    Look(const char* root, zelcheck_trial_t trial, void* context)
        : zelcheck_folder{}, root_(root), trial_(trial), context_(context) {}

    // False when a start would open a file that may not be opened.
    bool look();

private:
    // The steps of a start, as far as they start nothing. Each writes its lines to the log of this library. False when
    // the start would end there.
    bool open_reporting();
    bool open_manager();
    bool find_bus();
    bool read_cache_settings();
    bool read_settings();
    bool find_modules();
    bool read_level();
    static constexpr bool (Look::* kSteps[])() = {
        &Look::open_reporting, &Look::open_manager, &Look::find_bus,   &Look::read_cache_settings,
        &Look::read_settings,  &Look::find_modules, &Look::read_level,
    };

    bool may_open(const char* path) const;
    bool may_start() const;
    void read_mode();
    void take_steps();
    void add_settings();
    void add_setting(const Setting& row, unsigned long value, const SettingSource& source);
    void add_libraries();
    void add_flags();
    void give_out();
    const char* keep(std::string text) { return texts_.emplace_back(std::move(text)).c_str(); }
    // From the agent's root, for people.
    std::string shown(const char* path) const;

    const std::filesystem::path root_;
    const zelcheck_trial_t trial_;
    void* const context_;
    std::deque<std::string> texts_;  // a deque, since records point to the texts
    std::vector<LogLine> log_;
    std::vector<zelcheck_line> lines_;
    std::vector<uint32_t> subscription_;
    std::vector<zelcheck_setting> settings_;
    std::vector<zelcheck_library> libraries_;
    std::deque<FoundLibrary> found_;  // a deque, since libraries_ points into it
    std::vector<zelcheck_flag> flags_;
};

bool Look::look() {
    // The mode says which files a start opens.
    if (!may_open(kPureModeFile)) return false;
    read_mode();
    if (!may_start()) return false;
    take_steps();
    add_settings();
    add_libraries();
    add_flags();
    give_out();
    return true;
}

// The path as people write it, since it appears in the reason.
bool Look::may_open(const char* path) const {
    return trial_(context_, std::filesystem::path(module_path(path)).lexically_normal().c_str()) == nullptr;
}

// Only the file of the mode has been opened by now. All others that a start opens are tried before one of them is
// opened, since opening a FIFO would hold the look up.
bool Look::may_start() const {
    const char* const files[] = {kPluginSettings, kSkipLevel.file, kAgentConfig, kCaptureFlag};
    return std::ranges::all_of(files, [this](const char* path) { return may_open(path); }) &&
           std::ranges::all_of(status_libraries(), [this](const StatusLibrary& library) {
               return !library.is_opened_by_start(pure_mode != 0) || may_open(library.row.path);
           });
}

std::string Look::shown(const char* path) const {
    const std::string where = module_path(path);
    if (where.empty()) return path;
    return std::filesystem::path(where).lexically_normal().lexically_relative(root_.lexically_normal()).string();
}

void Look::read_mode() {
    SettingSource source;
    pure_mode = CheckAdvthreatsEnable(kPureModeSection, &source) == 0;
    const std::string file = shown(kPureModeFile);
    const std::string key = std::string(kPureModeKey) + " in section " + kPureModeSection;
    const std::string reasons[] = {
        std::string(kPureModeKey) + "=" + source.text + " in " + file,
        file + " has no " + key,
        file + ": " + why_unreadable(module_path(kPureModeFile)),
    };
    mode_reason = keep(reasons[source.found]);
    for (const auto& entry : subscription_table(pure_mode != 0)) subscription_.push_back(entry.uEventId);
}

// --- the steps of a start ---

// The plug-in keeps these libraries open. A look closes them again.
bool Look::open_reporting() {
    ZelBpSdkApi::Binding binding;
    binding.open_sdk();
    binding.open_ipc();
    version_from_file = binding.read_version();
    binding.read_agent_id();
    report_version = keep(std::string(binding.szVersion, strnlen(binding.szVersion, sizeof binding.szVersion)));
    report_agent_id = keep(std::string(binding.szAgentId, strnlen(binding.szAgentId, sizeof binding.szAgentId)));
    for (void* const handle : {binding.m_hBpSdk, binding.m_hIpc})
        if (handle != nullptr) dlclose(handle);
    return true;
}

// A start logs one line for each report that it cannot register.
bool Look::open_manager() {
    ZelbpmgrApi manager;
    manager.Init();
    for (size_t i = 0; !manager.can_register() && i < std::size(kReports); ++i) ZelbpmgrApi::log_not_registered();
    manager.Close();
    return true;
}

// The plug-in opens the bus and looks its function up before it attaches. A look ends there.
bool Look::find_bus() {
    Dll bus;
    MbFrame::DllGetClassObject_t function = nullptr;
    if (open_bus(bus) && find_class_object(bus, function)) return true;
    log_no_bus();
    return false;
}

// The plug-in reads these while it attaches to the bus.
bool Look::read_cache_settings() {
    ResHdlCache::CFifoQueue(0).LoadCacheSettings();
    return true;
}

// Only the log lines count here. The values are read once more for the answer, with their sources.
bool Look::read_settings() {
    ::Settings().load();
    return true;
}

bool Look::find_modules() { return pure_mode != 0 || SiblingModules::can_load(); }

bool Look::read_level() {
    read_skip_level();
    return true;
}

// `failure` is set before each step. So after a step that fails it leads to the first line that this step has written.
void Look::take_steps() {
    LogLines& log = log_lines();
    log.clear();
    log.set_level(ZEL_LOG_WARN);
    starts = 1;
    for (const auto step : kSteps) {
        failure = log.lines().size();
        starts = (this->*step)() ? 1 : 0;
        if (starts == 0) break;
    }
    if (starts != 0) failure = log.lines().size();
    log_ = log.lines();
    log.set_level(-1);
    log.clear();
}

// --- what is in force ---

void Look::add_setting(const Setting& row, unsigned long value, const SettingSource& source) {
    const std::string path = module_path(row.file);
    settings_.push_back({keep(shown(row.file)), row.section, row.key, value, origin_of(source),
                         keep(reason_of(row, source, path)),
                         source.found == SettingSource::in_file ? keep(source.text) : nullptr, row.otherwise,
                         row.lowest, row.highest, row.base});
}

// A start does not keep where a value comes from, so each key is read here once more. Traces are made outside pure
// mode, and only when "trc_times" is above 0.
void Look::add_settings() {
    const auto read = [this](const Setting& row) {
        SettingSource source;
        const unsigned long value = read_setting(row, module_path(row.file), &source);
        add_setting(row, value, source);
        return value;
    };
    for (const SettingRow& row : setting_rows()) {
        const unsigned long value = read(row.setting);
        if (row.goes_to == &::Settings::uTrcTimes) tracing = pure_mode == 0 && value != 0;
    }
    for (const ResHdlCache::CacheSettingRow& row : ResHdlCache::kCacheSettings) read(row.setting);
    SettingSource source;
    const uint32_t level = read_skip_level(&source);
    add_setting(kSkipLevel, level, source);
}

void Look::add_libraries() {
    for (const StatusLibrary& library : status_libraries()) {
        const FoundLibrary& found = found_.emplace_back(find_library(library.row, trial_, context_));
        libraries_.push_back({library.title, keep(shown(library.row.path)), library.is_required(pure_mode != 0),
                              library.is_used(pure_mode != 0), found.complete(),
                              found.reason.empty() ? nullptr : found.reason.c_str(), library.use,
                              found.functions.data(), found.functions.size()});
    }
}

void Look::add_flags() {
    ::Settings read;
    read.load();
    const bool filter = value_of(read.uAlertFilterSwitch) != 0;
    const bool capture = is_capture_on();
    flags_ = {{kFilterOffFlag, !filter, filter ? "the repeat filter is on" : "the repeat filter is off"},
              {kCaptureFlag, capture,
               capture ? "copies of alerts and traces are written beside it" : "no copies are written"}};
}

// Comes last: a list that grows moves what the record points to.
void Look::give_out() {
    for (const LogLine& line : log_) lines_.push_back({line.level, line.text.c_str()});
    lines = lines_.data();
    line_count = lines_.size();
    subscription = subscription_.data();
    subscription_count = subscription_.size();
    settings = settings_.data();
    setting_count = settings_.size();
    libraries = libraries_.data();
    library_count = libraries_.size();
    flags = flags_.data();
    flag_count = flags_.size();
}

}  // namespace
}  // namespace zel::check

int32_t zelcheck_folder_open(const char* root, zelcheck_trial_t trial, void* context, const zelcheck_folder** out) {
    try {
        const zel::check::ModuleFolder folder((std::filesystem::path(root) / "reshdl/bin").string());
        auto look = std::make_unique<zel::check::Look>(root, trial, context);
        if (!look->look()) return -1;
        *out = look.release();
        return 0;
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

void zelcheck_folder_close(const zelcheck_folder* folder) { delete static_cast<const zel::check::Look*>(folder); }
