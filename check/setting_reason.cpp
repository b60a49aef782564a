#include "check/setting_reason.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

namespace zel::check {

// A folder is asked for first, because it can be opened like a file.
std::string why_unreadable(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) return "it is a folder";
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "re"), fclose);
    return file != nullptr ? "" : strerror(errno);
}

// The default may replace a value from the file or a missing one, so this is asked first.
zelcheck_origin origin_of(const SettingSource& source) {
    if (source.replaced) return ZELCHECK_FROM_DEFAULT;
    return source.found == SettingSource::in_file ? ZELCHECK_FROM_FILE : ZELCHECK_FROM_ZERO;
}

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

}  // namespace zel::check
