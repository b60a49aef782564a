// One line of a log file of the plug-in. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zelhost {

// Views into the line, which has to outlive them.
// One line of the log, taken apart. Any thread may make one; it owns nothing.
struct LogFileLine {
    std::optional<int64_t> at_us;  // microseconds since 1970; nothing when no time stands there
    int64_t process = 0;
    int32_t level = 0;
    std::string_view file;  // that logged it
    std::string_view text;
};

// Nothing when the line is none of the plug-in's. The time stamp is taken to be of the local zone.
std::optional<LogFileLine> parse_log_line(std::string_view line);

}  // namespace zelhost
