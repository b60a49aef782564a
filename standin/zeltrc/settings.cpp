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

struct IniDeleter {
    void operator()(void* ini) const { zel_ini_file_free(ini); }
};

}  // namespace

Settings read_settings() {
    Settings settings;
    char path[4097];
    void* handle = nullptr;
    if (zel_dirutils_path_transform("@/../config/zeltrc.ini", path, sizeof path) != 0 ||
        zel_ini_file_load(path, &handle) != 0)
        return settings;
    const std::unique_ptr<void, IniDeleter> ini(handle);
    for (const Key& key : kKeys) {
        const char* text = zel_ini_file_get(handle, "standin", key.name);
        if (text != nullptr && !parse_number(text, key.highest, settings.*key.member))
            ZELTRC_LOG(ZEL_LOG_WARN, "WARN", "[standin] %s = %s is no number up to %lu", key.name, text,
                       static_cast<unsigned long>(key.highest));
    }
    return settings;
}
