#include "host/explain/log_line.h"

#include <charconv>
#include <ctime>
#include <string>
#include <utility>

#include "platform/zel_support.h"

namespace zelhost {
namespace {

// What stands before the text of each line: time, process, level, tag, and file with line number.
constexpr std::string_view kProcess = "[PID:";
constexpr std::string_view kTag = "[zelreshdl]";
constexpr std::pair<std::string_view, int32_t> kLevels[] = {
    {"[ERROR]", ZEL_LOG_ERROR}, {"[WARN]", ZEL_LOG_WARN}, {"[INFO]", ZEL_LOG_INFO}, {"[DEBUG]", ZEL_LOG_DEBUG}};

void skip_blanks(std::string_view& rest) {
    const size_t blanks = rest.find_first_not_of(" \t");
    rest.remove_prefix(blanks == std::string_view::npos ? rest.size() : blanks);
}

// Takes the text off the front of the rest. False when it does not stand there.
bool skip(std::string_view& rest, std::string_view what) {
    if (!rest.starts_with(what)) return false;
    rest.remove_prefix(what.size());
    return true;
}

// Takes the digits off the front of the rest. False when there are none.
template <class Number>
bool read_number(std::string_view& rest, Number& number) {
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    if (error != std::errc{}) return false;
    rest.remove_prefix(static_cast<size_t>(end - rest.data()));
    return true;
}

// The second that "2026-11-25 19:41:03" names in the local zone. Many lines share one, so the last answer is kept.
std::optional<int64_t> second_of(std::string_view stamp) {
    // Of this thread alone, so that no lock is needed.
    thread_local std::string last_stamp;
    thread_local std::optional<int64_t> last_second;
    if (stamp == last_stamp) return last_second;
    last_stamp = stamp;
    last_second = std::nullopt;
    tm when{};
    const char* const end = strptime(last_stamp.c_str(), "%Y-%m-%d %H:%M:%S", &when);
    // The C library finds out whether summer time holds at that moment.
    when.tm_isdst = -1;
    if (end != nullptr && *end == '\0') last_second = mktime(&when);
    return last_second;
}

// "2026-11-25 19:41:03.906 " before the prefix.
std::optional<int64_t> time_of(std::string_view before) {
    constexpr size_t kSecondsEnd = sizeof "2026-11-25 19:41:03" - 1;
    // The stamp is the end of what stands before the prefix. A logger may write something before
    // it.
    if (before.size() < kSecondsEnd + 5) return std::nullopt;
    std::string_view stamp = before.substr(before.size() - kSecondsEnd - 5);
    const auto second = second_of(stamp.substr(0, kSecondsEnd));
    stamp.remove_prefix(kSecondsEnd);
    uint32_t milliseconds = 0;
    if (!second || !skip(stamp, ".") || !read_number(stamp, milliseconds) || stamp != " ") return std::nullopt;
    return *second * 1'000'000 + int64_t{milliseconds} * 1000;
}

}  // namespace

std::optional<LogFileLine> parse_log_line(std::string_view line) {
    // Whatever stands before the mark, such as the time, is looked at last.
    const size_t begin = line.find(kProcess);
    if (begin == std::string_view::npos) return std::nullopt;
    LogFileLine parsed;
    std::string_view rest = line.substr(begin + kProcess.size());
    if (!read_number(rest, parsed.process)) return std::nullopt;
    skip_blanks(rest);
    if (!skip(rest, "]")) return std::nullopt;
    skip_blanks(rest);
    bool known = false;
    for (const auto& [name, level] : kLevels) {
        // A line of an unknown level is of another program.
        if (!skip(rest, name)) continue;
        parsed.level = level;
        known = true;
        break;
    }
    if (!known) return std::nullopt;
    skip_blanks(rest);
    if (!skip(rest, kTag)) return std::nullopt;
    skip_blanks(rest);
    // "[file(line)] "
    // File and line number stand in brackets. The name of the file ends where the line number
    // begins.
    const size_t end = rest.find(")] ");
    if (!rest.starts_with('[') || end == std::string_view::npos) return std::nullopt;
    parsed.file = rest.substr(1, rest.substr(0, end).find('(') - 1);
    parsed.text = rest.substr(end + 3);
    parsed.at_us = time_of(line.substr(0, begin));
    return parsed;
}

}  // namespace zelhost
