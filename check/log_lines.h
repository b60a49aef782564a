// The lines that the plug-in's code logs while this library runs it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zel::check {

// One line. It is kept until the next clear().
struct LogLine {
    int32_t level;     // ZEL_LOG_ERROR to ZEL_LOG_DEBUG
    std::string text;  // behind the prefix
};

// The lines of a level and those that are more urgent, since the last clear(). A smaller number is more urgent. With
// level -1 no line is kept.
class LogLines {
public:
    void set_level(int32_t level) { level_ = level; }
    bool wants(int32_t level) const { return level <= level_; }
    // `line` has the prefix.
    void add(int32_t level, const char* line);
    void clear() { lines_.clear(); }
    const std::vector<LogLine>& lines() const { return lines_; }

private:
    int32_t level_ = -1;
    std::vector<LogLine> lines_;
};

// The one that the logger of this library writes to.
LogLines& log_lines();

}  // namespace zel::check
