#include "host/explain/log_format.h"

#include <algorithm>
#include <string>

namespace zelhost {
namespace {

// 37 characters, each of which a logger may have written as an escape of four.
constexpr size_t kLongestGuid = size_t{37} * 4;
constexpr std::string_view kConversions = "sduxc";

// What follows at a place of a format: literal text, and then a value or the end.
struct Part {
    std::string literal;
    char conversion = '\0';  // '\0' at the end
    size_t end = 0;          // where the next part begins
};

// Walks to the next value and collects the text before it. A doubled percent sign is text.
Part part_at(std::string_view format, size_t at) {
    Part part;
    while (at < format.size()) {
        if (format[at] != '%') {
            part.literal += format[at++];
        } else if (format.substr(at).starts_with("%%")) {
            part.literal += '%';
            at += 2;
        } else {
            // Lengths such as "ll" and widths such as "08" stand between the percent sign and the
            // letter, and mean nothing here.
            at = std::min(format.find_first_of(kConversions, at), format.size() - 1);
            part.conversion = format[at++];
            break;
        }
    }
    part.end = at;
    return part;
}

// Hexadecimal digits are written in small letters.
bool is_of_number(char c, char conversion) {
    return (c >= '0' && c <= '9') || c == '-' || (conversion == 'x' && c >= 'a' && c <= 'f');
}

using Values = std::vector<std::string_view>;

// Fits the rest of the line to the rest of the format, one value a call.
bool fit(std::string_view line, std::string_view format, int guid, Values& values) {
    const Part part = part_at(format, 0);
    if (!line.starts_with(part.literal)) return false;
    line.remove_prefix(part.literal.size());
    format.remove_prefix(part.end);
    // The line must end where the format ends.
    if (part.conversion == '\0') return line.empty();

    // A number ends at the first character that is not of a number. So no other length has to be
    // tried.
    if (part.conversion != 's') {
        size_t size = 0;
        while (size < line.size() && is_of_number(line[size], part.conversion)) ++size;
        if (size == 0) return false;
        values.push_back(line.substr(0, size));
        return fit(line.substr(size), format, guid, values);
    }
    const bool last = format.empty();
    // Only the value that is the GUID is limited. All others may take the whole rest.
    const size_t most = static_cast<int>(values.size()) == guid ? std::min(kLongestGuid, line.size()) : line.size();
    // Nothing follows the last text, so it takes all that is left.
    if (last) {
        values.push_back(line);
        return line.size() <= most;
    }
    const std::string next = part_at(format, 0).literal;
    // A text before the GUID may hold whatever was in an event, while a GUID has been made by the plug-in as a rule.
    const bool before_guid = static_cast<int>(values.size()) + 1 == guid;
    const auto find = [&](size_t from) { return before_guid ? line.rfind(next, from) : line.find(next, from); };
    // A text may itself hold what follows it in the format. The next place is tried when the rest
    // of the line does not fit.
    for (size_t end = find(before_guid ? std::string_view::npos : 0); end <= most;) {
        // A try that failed has left values of its own, which must go.
        const size_t known = values.size();
        values.push_back(line.substr(0, end));
        if (fit(line.substr(end), format, guid, values)) return true;
        values.resize(known);
        if (before_guid && end == 0) break;
        end = find(before_guid ? end - 1 : end + 1);
    }
    return false;
}

}  // namespace

std::optional<Values> values_of(std::string_view line, std::string_view format, int guid) {
    Values values;
    if (!fit(line, format, guid, values)) return std::nullopt;
    return values;
}

std::string_view head_of(std::string_view format) { return format.substr(0, format.find('%')); }

}  // namespace zelhost
