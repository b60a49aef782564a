// Any bytes as a settings file: each setting is the number that stands in the file when that is within the limits, and
// the default otherwise. What a start reads is the same.
#include <cstdlib>
#include <string>

#include "agent_file.h"
#include "common/relaxed.h"
#include "fuzz.h"
#include "pipeline/settings.h"
#include "suppress/fifoqueue.h"
#include "suppress/traceEliminator.h"

namespace {

uint64_t check_setting(const zel::Setting& setting, const std::string& path) {
    using Source = zel::SettingSource;
    Source source;
    const unsigned long value = zel::read_setting(setting, path, &source);
    FUZZ_CHECK(source.found != Source::no_file);
    const unsigned long number =
        source.found == Source::in_file ? strtoul(source.text.c_str(), nullptr, setting.base) : 0;
    FUZZ_CHECK(source.number == number);
    const bool within = number >= setting.lowest && number <= setting.highest;
    FUZZ_CHECK(source.replaced == !within && value == (within ? number : setting.otherwise));
    return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::AgentFile file({reinterpret_cast<const char*>(data), size});
    Settings settings;
    settings.load();
    for (const SettingRow& row : setting_rows())
        FUZZ_CHECK(check_setting(row.setting, file.path()) == value_of(settings.*row.goes_to));
    for (const ResHdlCache::CacheSettingRow& row : ResHdlCache::kCacheSettings) check_setting(row.setting, file.path());

    // A reader of its own: here a key that is missing gives the default, too.
    zel::SettingSource source;
    const uint32_t level = read_skip_level(&source);
    FUZZ_CHECK(level <= kSkipLevel.highest && (source.found == source.in_file || level == kSkipLevel.otherwise));
    return 0;
}
