#include "standin/zeltrc/settings.h"

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "standin/zeltrc/log.h"

namespace {

// One setting: its key, the member that it sets and its limit.
struct Key {
    const char* name;
    uint64_t Settings::* member;
    uint64_t highest;
};

// The limits keep a mistyped setting from stopping a run for days.
constexpr Key kKeys[] = {
    {"not_ready_times", &Settings::not_ready_times, 1'000'000}, {"cost_ms", &Settings::cost_ms, 600'000},
    {"fail_every", &Settings::fail_every, 1'000'000'000},       {"drop_every", &Settings::drop_every, 1'000'000'000},
    {"partial_result", &Settings::partial_result, 1},           {"init_fails", &Settings::init_fails, 1},
};

// False unless the whole text is a decimal number up to `highest`.
bool parse_number(const char* text, uint64_t highest, uint64_t& value) {
    char* end = nullptr;
    errno = 0;
    const unsigned long number = strtoul(text, &end, 10);
    if (end == text || *end != '\0' || *text == '-' || errno != 0 || number > highest) return false;
    value = number;
    return true;
}

// Gives a parsed file back to the support library.
struct IniDeleter {
    void operator()(void* ini) const { zel_ini_file_free(ini); }
};

}  // namespace

Settings read_settings() {
    Settings settings;
    // The file is the module's own; zelhost appends the section to its copy.
    char path[4097];
    void* handle = nullptr;
    if (zel_dirutils_path_transform("@/../config/zeltrc.ini", path, sizeof path) != 0 ||
        zel_ini_file_load(path, &handle) != 0)
        return settings;
    const std::unique_ptr<void, IniDeleter> ini(handle);
    for (const Key& key : kKeys) {
        const char* text = zel_ini_file_get(handle, "standin", key.name);
        // A bad value must be seen, or a run would test something else than its options say.
        if (text != nullptr && !parse_number(text, key.highest, settings.*key.member))
            ZELTRC_LOG(ZEL_LOG_WARN, "WARN", "[standin] %s = %s is no number up to %lu", key.name, text,
                       static_cast<unsigned long>(key.highest));
    }
    return settings;
}
