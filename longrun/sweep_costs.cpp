#include "longrun/sweep_costs.h"

#include <algorithm>
#include <iterator>

namespace sweep {
namespace {

// Traces, with the KOV alerts and the calls that need the trace module.
constexpr const char* kTraces = " 769 770 callback8 callback10 process_trace report ";
// What the settings decide on: traces, memory checks, and what the cache merges.
constexpr const char* kBySettings = " 769 770 2305 callback8 copy report ";
constexpr const char* kHits = " 769 770 copy report ";
constexpr const char* kMessages = " 769 770 ";
constexpr const char* kReports = " report ";
constexpr const char* kCopies = " copy ";

// Rows for one call stand together, the narrower ones first.
constexpr Cost kCosts[] = {
    // Memory.
    {"malloc", "", Loss::event},
    {"calloc", "", Loss::event},
    {"realloc", "", Loss::event},
    {"new", "", Loss::event},
    {"new(nothrow)", "", Loss::event},

    // Files. A copy for diagnosis is lost without a word, and so is the version of the agent.
    {":agent_cfg.json", "", Loss::nothing},
    {"fread:reshdlproto_flag", "", Loss::nothing},
    {"fopen", "", Loss::lost, kCopies},
    {"fwrite", "", Loss::lost, kCopies},
    // Random numbers come from another source then.
    {":urandom", "", Loss::nothing},
    {"read", "", Loss::nothing},
    {"getrandom", "", Loss::nothing},
    // The size of a modified file is left out of the message.
    {"open", "open file error", Loss::changed, kMessages},
    {"fstat", "open file error", Loss::changed, kMessages},
    {"lseek", "get file size error", Loss::changed, kMessages},

    // Threads and mutexes cost the start. Without its own mutex the plug-in could not undo a start, so it ends the
    // process. The mutex of the hot cache is made when the library is loaded; without it no hit is merged.
    {"zel_thread_start", "Failed to start the worker thread.", Loss::event},
    {"zel_mutex_init", "init eliminator manager failed!", Loss::event},
    {"zel_mutex_init", "mutex_init error.", Loss::event},
    {"zel_mutex_init", "mutex_init failed!", Loss::process},
    {"zel_mutex_init", "mutex init failed!", Loss::for_good, kHits},

    // Libraries, the look-up of their paths, and their symbols. The bus and both modules cost the start, or with the
    // end
    // of a reset period all traces up to the next start.
    {":liblummb.so", "LoadMbDll failed!", Loss::event},
    {":DllGetClassObject", "LoadMbDll failed!", Loss::event},
    {":libzelds.so", "load moudle failed!", Loss::event, "", "start"},
    {":libzelds.so", "load moudle failed!", Loss::until_start, kTraces, "reset"},
    {":libzeltrc.so", "load moudle failed!", Loss::event, "", "start"},
    {":libzeltrc.so", "load moudle failed!", Loss::until_start, kTraces, "reset"},
    {":libzellxadapter.so", "", Loss::nothing},
    {":SelectProcTree", "", Loss::nothing},
    {"zel_dll_get_addr", "load moudle failed!", Loss::event, "", "start"},
    {"zel_dll_get_addr", "load moudle failed!", Loss::until_start, kTraces, "reset"},
    {":libzelbpmgr.so", "dll open zel_bpmgr failed", Loss::until_start, kReports},
    {":register_report_cb", "m_register_report_cb get error", Loss::until_start, kReports},
    {":libzel_bpsdk.so", "dll open zel_bpsdk failed", Loss::nothing},
    {":libodaipc.so", "", Loss::nothing},
    {"dlsym", "", Loss::nothing},

    // Settings have a fallback, which holds until the next start.
    {":zelreshdl.ini", "ini_file_load failed!", Loss::until_start, kBySettings},
    {"zel_ini_file_get:skip_behavior_level", "ini_file_get section", Loss::nothing},
    {"zel_ini_file_get", "ini_file_get failed!", Loss::until_start, kBySettings},
    {"zel_ini_file_load:zeltrc.ini", "ini_file_load error", Loss::nothing},
    {":zeltrc.ini", "is not exist", Loss::nothing},
    {":zel_pure_mode.ini", "", Loss::nothing},
    {":alert_filter_disable_flag", "", Loss::nothing},
};

bool is_for(const std::string& row, const std::string& call) {
    const size_t colon = call.find(':');
    return row == call || row == call.substr(0, colon) || (colon != std::string::npos && row == call.substr(colon));
}

bool is_among(const std::string& part, const std::vector<std::string>& lines) {
    return part.empty() ||
           std::ranges::any_of(lines, [&](const auto& line) { return line.find(part) != std::string::npos; });
}

}  // namespace

const Cost* find_cost(const std::string& call, const std::string& group, const std::vector<std::string>& new_lines) {
    const auto* const found = std::ranges::find_if(kCosts, [&](const Cost& cost) {
        return is_for(cost.call, call) && (*cost.group == '\0' || cost.group == group) &&
               is_among(cost.line, new_lines);
    });
    return found == std::end(kCosts) ? nullptr : found;
}

}  // namespace sweep
