// What a start in an agent folder would do. It takes the steps of plugin_init in their order, and leaves out what
// starts something: the SDK, the registration of the report callbacks, the attachment to the bus, the trace module, the
// workers.
#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <memory>
#include <new>

#include "check/log_lines.h"
#include "check/module_folder.h"
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

// Empty for a file that can be opened.
std::string why_unreadable(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) return "it is a folder";
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "re"), fclose);
    return file != nullptr ? "" : strerror(errno);
}

zelcheck_origin origin_of(const SettingSource& source) {
    if (source.replaced) return ZELCHECK_FROM_DEFAULT;
    return source.found == SettingSource::in_file ? ZELCHECK_FROM_FILE : ZELCHECK_FROM_ZERO;
}

// For people. Empty when the number in force stands in the file as it is.
std::string reason_of(const Setting& row, const SettingSource& source, const std::string& path) {
    const std::string number = std::to_string(source.number);
    const std::string limits = std::to_string(row.lowest) + " to " + std::to_string(row.highest);
    if (source.found == SettingSource::in_file) {
        std::string reason = source.text == number ? number : "\"" + source.text + "\" counts as " + number;
        if (source.replaced) return reason + ", outside " + limits;
        return source.text == number ? "" : reason;
    }
    const std::string unreadable = why_unreadable(path);
    std::string reason = unreadable.empty() ? "no such key" : "the file cannot be read: " + unreadable;
    // A reader that takes the default for what is missing does not look at the limits.
    if (source.replaced && row.lowest > 0) reason += "; counts as 0, outside " + limits;
    if (!source.replaced) reason += "; counts as 0";
    return reason;
}

// Owns all that the record leads to.
class Look final : public zelcheck_folder {
public:
    explicit Look(const std::string& root);

    static bool may_open_all(zelcheck_may_open_t may_open, void* context);
    void look();

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
    std::deque<std::string> texts_;
    std::vector<LogLine> log_;
    std::vector<zelcheck_line> lines_;
    std::vector<uint32_t> subscription_;
    std::vector<zelcheck_setting> settings_;
    std::vector<zelcheck_library> libraries_;
    std::deque<FoundLibrary> found_;
    std::vector<zelcheck_flag> flags_;
};

Look::Look(const std::string& root) : zelcheck_folder{}, root_(root) {}

void Look::look() {
    read_mode();
    take_steps();
    add_settings();
    add_libraries();
    add_flags();
    give_out();
}

std::string Look::shown(const char* path) const {
    const std::string where = module_path(path);
    if (where.empty()) return path;
    return std::filesystem::path(where).lexically_normal().lexically_relative(root_.lexically_normal()).string();
}

// Paths as people write them, since they appear in what is said of them.
bool Look::may_open_all(zelcheck_may_open_t may_open, void* context) {
    std::vector<const char*> paths = {kPluginSettings, kSkipLevel.file, kPureModeFile, kAgentConfig, kCaptureFlag};
    for (const StatusLibrary& library : status_libraries()) paths.push_back(library.row.path);
    return std::ranges::all_of(paths, [&](const char* path) {
        return may_open(context, std::filesystem::path(module_path(path)).lexically_normal().c_str()) != 0;
    });
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

bool Look::open_manager() {
    ZelbpmgrApi manager;
    manager.Init();
    for (size_t i = 0; !manager.can_register() && i < std::size(kReports); ++i) ZelbpmgrApi::log_not_registered();
    manager.Close();
    return true;
}

bool Look::find_bus() {
    Dll bus;
    MbFrame::DllGetClassObject_t function = nullptr;
    if (open_bus(bus) && find_class_object(bus, function)) return true;
    log_no_bus();
    return false;
}

// The bus calls back for these.
bool Look::read_cache_settings() {
    ResHdlCache::CFifoQueue(0).LoadCacheSettings();
    return true;
}

bool Look::read_settings() {
    ::Settings().load();
    return true;
}

bool Look::find_modules() { return pure_mode != 0 || SiblingModules::can_load(); }

bool Look::read_level() {
    read_skip_level();
    return true;
}

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
        const FoundLibrary& found = found_.emplace_back(find_library(library.row));
        const bool used = library.need != Need::full_operation || pure_mode == 0;
        libraries_.push_back({library.title, keep(shown(library.row.path)), library.need != Need::nothing && used, used,
                              found.complete(), found.reason.empty() ? nullptr : found.reason.c_str(), library.use,
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

int32_t zelcheck_folder_open(const char* root, zelcheck_may_open_t may_open, void* context,
                             const zelcheck_folder** out) {
    using zel::check::Look;
    try {
        const zel::check::ModuleFolder folder(std::string(root) + "/reshdl/bin");
        if (!Look::may_open_all(may_open, context)) return -1;
        auto look = std::make_unique<Look>(root);
        look->look();
        *out = look.release();
        return 0;
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

void zelcheck_folder_close(const zelcheck_folder* folder) { delete static_cast<const zel::check::Look*>(folder); }
