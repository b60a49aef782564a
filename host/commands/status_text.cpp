// The status for people: the verdict first, then what it rests on.
#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "host/commands/status.h"
#include "host/lib/event_names.h"
#include "host/lib/visible.h"

namespace zelhost {
namespace {

// State, path, title and need, each in a column.
constexpr const char* kRow = "  {} {:<30} {:<18} {}\n";

// Padded before it is painted, so that the codes of a colour do not count.
// The width is counted in characters of the text.
std::string word(const Paint& paint, Tint tint, std::string_view text, size_t width) {
    return paint(tint, fmt::format("{:<{}}", text, width));
}

std::string heading(const Paint& paint, std::string_view text) { return "\n" + paint(Tint::bold, text) + "\n"; }

// The log has the level as a word.
std::string log_line(const Paint& paint, const zelcheck_line& line) {
    return fmt::format("  {} {}\n", word(paint, line.level == 0 ? Tint::error : Tint::warning, level_name(line), 5),
                       visible(line.text));
}

// What a start brings about, on one line.
// What would be missing although a start succeeds is told as well.
std::string outcome(const zelcheck_folder& folder) {
    const char* const tracing = folder.tracing != 0     ? "tracing on"
                                : folder.pure_mode != 0 ? "no tracing"
                                                        : "tracing off (trc_times is 0)";
    std::string text = fmt::format("{}, {} subscriptions, {}", folder.pure_mode != 0 ? "pure mode" : "full operation",
                                   folder.subscription_count, tracing);
    const char* before = "; without the ";
    for (const auto& library : std::span(folder.libraries, folder.library_count)) {
        if (library.complete != 0 || library.used == 0) continue;
        text += before + std::string(library.title);
        before = ", the ";
    }
    return text;
}

// The first line answers the question. The others are for whoever wants to know more.
std::string verdict(const Status& status, const Paint& paint) {
    const zelcheck_folder& folder = status.folder;
    std::string text;
    if (status.starts()) {
        text = paint(Tint::good, "a start would succeed") + ": " + outcome(folder) + "\n";
    } else if (const AgentLibrary* const obstacle = status.obstacle()) {
        text = paint(Tint::error, "a start would fail") +
               fmt::format(": the {} cannot be loaded, so nothing is logged\n  {}\n", obstacle->title,
                           visible(obstacle->reason));
    } else {
        text = paint(Tint::error, "a start would fail") + ": the log would say\n";
        // The lines from the failure on are those that matter.
        for (const auto& line : std::span(folder.lines, folder.line_count).subspan(folder.failure))
            text += log_line(paint, line);
    }
    return text + paint(Tint::faint, "agent folder " + visible(status.root)) + "\n";
}

// --- libraries ---

// A library may be there and lack functions that the plug-in looks up.
std::string library_row(const zelcheck_library& library, const Paint& paint) {
    std::string lacks;
    for (const auto& function : std::span(library.functions, library.function_count))
        if (function.found == 0) lacks += std::string(lacks.empty() ? "" : ", ") + function.name;
    const char* const state = library.complete != 0 ? "found" : library.reason != nullptr ? "missing" : "lacks";
    // The colour tells how much it matters.
    const Tint tint = library.complete != 0   ? Tint::good
                      : library.required != 0 ? Tint::error
                      : library.used != 0     ? Tint::warning
                                              : Tint::faint;
    const std::string need = library.used == 0       ? "not used in pure mode"
                             : library.required != 0 ? "required"
                                                     : std::string("optional: ") + library.use;
    std::string text = fmt::format(kRow, word(paint, tint, state, 8), library.path, library.title, need);
    if (library.reason != nullptr)
        text += "           " + visible(library.reason) + "\n";
    else if (!lacks.empty())
        text += "           without " + lacks + "\n";
    return text;
}

// The agent's own libraries first, then those that the plug-in opens.
std::string libraries(const Status& status, const Paint& paint) {
    std::string text = heading(paint, "libraries");
    for (const AgentLibrary& library : status.agent_libraries) text += library_row(library.row(), paint);
    for (const auto& library : std::span(status.folder.libraries, status.folder.library_count))
        text += library_row(library, paint);
    return text;
}

// --- settings ---

// The settings come file by file.
std::string settings(const zelcheck_folder& folder, const Paint& paint) {
    constexpr const char* kOrigins[] = {"file", "default", "missing"};
    std::string text;
    std::string_view file;
    for (const auto& setting : std::span(folder.settings, folder.setting_count)) {
        if (setting.file != file) text += heading(paint, fmt::format("settings of {}", visible(setting.file)));
        file = setting.file;
        const Tint tint = setting.origin == ZELCHECK_FROM_FILE ? Tint::good : Tint::warning;
        const std::string reason = visible(setting.reason);
        text += fmt::format("  {:<44} {:>6}  {}{}{}\n", fmt::format("{}.{}", setting.section, setting.key),
                            setting.value, paint(tint, kOrigins[setting.origin]), reason.empty() ? "" : ": ", reason);
    }
    return text;
}

// --- the rest ---

// Three events stand in a line.
std::string mode(const zelcheck_folder& folder, const Paint& paint) {
    std::string text = heading(paint, "mode and events");
    text +=
        fmt::format("  {} ({})\n", folder.pure_mode != 0 ? "pure mode" : "full operation", visible(folder.mode_reason));
    for (size_t i = 0; i < folder.subscription_count; ++i) {
        const bool last = i % 3 == 2 || i + 1 == folder.subscription_count;
        const uint32_t id = folder.subscription[i];
        text += fmt::format("  {:>4} {:<{}}{}", id, event_name(id), last ? 0 : 19, last ? "\n" : "");
    }
    return text;
}

// Flag files and variables change what a start does without standing in a settings file.
std::string surroundings(const Status& status, const Paint& paint) {
    const zelcheck_folder& folder = status.folder;
    std::string text = heading(paint, "flag files");
    for (const auto& flag : std::span(folder.flags, folder.flag_count))
        text += fmt::format("  {} {:<44} {}\n", word(paint, Tint::plain, flag.present != 0 ? "there" : "absent", 6),
                            flag.path, flag.effect);
    text += heading(paint, "environment");
    for (const Variable& variable : status.environment)
        text += fmt::format("  {:<13}  {}  {}\n", variable.name,
                            word(paint, variable.value == nullptr ? Tint::faint : Tint::plain,
                                 variable.value == nullptr ? "not set" : visible(variable.value), 7),
                            paint(Tint::faint, variable.effect));
    text += fmt::format("  reports carry version {} ({}) and agent id {}\n", visible(folder.report_version),
                        folder.version_from_file != 0 ? "of config/agent_cfg.json" : "built in",
                        visible(folder.report_agent_id));
    return text;
}

// Without the plug-in nothing would be logged.
std::string log_lines(const Status& status, const Paint& paint) {
    const zelcheck_folder& folder = status.folder;
    std::string text;
    if (folder.line_count > 0 && status.obstacle() == nullptr) {
        text = heading(paint, "errors and warnings that a start would log");
        for (const auto& line : std::span(folder.lines, folder.line_count)) text += log_line(paint, line);
    }
    text += heading(paint, "only a start shows");
    for (const char* const what : kOnlyAStartShows) text += fmt::format("  {}\n", what);
    return text;
}

}  // namespace

std::string status_text(const Status& status, const Paint& paint) {
    return verdict(status, paint) + libraries(status, paint) + settings(status.folder, paint) +
           mode(status.folder, paint) + surroundings(status, paint) + log_lines(status, paint);
}

}  // namespace zelhost
