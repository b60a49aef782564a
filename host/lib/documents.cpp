#include "host/lib/documents.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "host/lib/json_scan.h"

namespace zelhost {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The first byte that counts, behind a byte-order mark and spaces; npos when there is none.
// The mark is no part of a document.
size_t first_byte(std::string_view line) {
    return line.find_first_not_of(" \t\r", line.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
}

bool is_passed_over(std::string_view line) {
    const size_t first = first_byte(line);
    return first == std::string_view::npos || line[first] == '#';
}

bool opens_object(std::string_view line) {
    const size_t first = first_byte(line);
    return first != std::string_view::npos && line[first] == '{';
}

// Of a file with line ends of two bytes.
std::string_view without_return(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

// Keys are ASCII; the decoder ignores case in the same way.
// Without regard to the language of the user.
bool same_key(std::string_view a, std::string_view b) {
    const auto lower = [](char letter) { return tolower(static_cast<unsigned char>(letter)); };
    return std::ranges::equal(a, b, {}, lower, lower);
}

// What a line of a script says about its event.
struct ScriptLine {
    bool is_script = false;
    uint32_t event_id = 0;
    std::string_view payload;  // of "alert", "json" or "text"; empty when there is none
    bool is_text = false;
};

// A document may have a member "event", too, but not a number under it. As in a run, where such a line would be an
// event, and one with "do" an action.
ScriptLine read_script_line(std::string_view line) {
    // The first member that tells what the line is decides.
    ScriptLine script;
    if (line.starts_with(kByteOrderMark)) line.remove_prefix(kByteOrderMark.size());
    MemberScan scan(line);
    ScannedMember member;
    while (scan.next(member)) {
        // A document has this key and a line of a script does not.
        if (same_key(member.key, "alert_type")) return {};
        if (member.key == "do" && member.value.starts_with('"')) script.is_script = true;
        if (member.key == "event") {
            const char* const begin = member.value.data();
            const char* const end = begin + member.value.size();
            // All of the value must be a number.
            script.is_script = std::from_chars(begin, end, script.event_id).ptr == end;
            if (!script.is_script) return {};
        }
        const bool is_text = member.key == "text" && member.value.starts_with('"');
        if (!is_text && member.key != "alert" && member.key != "json") continue;
        script.payload = member.value;
        script.is_text = is_text;
    }
    // A line that is broken is shown where it breaks, as a document is.
    if (!scan.is_whole()) return {};
    return script;
}

}  // namespace

// --- places ---

// In a literal an escape takes more bytes than it stands for.
size_t Document::in_lines(uint64_t offset) const {
    const size_t at = is_literal ? literal_place(lines.substr(begin), offset) : offset;
    return std::min(begin + at, lines.size());
}

// The end of the line, without what ends it.
size_t Document::line_end(size_t at) const {
    const auto next = std::ranges::upper_bound(starts, at);
    return next == starts.end() ? lines.size() : *next - 1;
}

// By the starts of the lines: a document of 200 MB may have a thousand places.
FilePlace Document::place(uint64_t offset) const {
    const size_t at = in_lines(offset);
    // The line with the place is the last one that begins at it or before it.
    const auto next = std::ranges::upper_bound(starts, at);
    const size_t line = next == starts.begin() ? 0 : *(next - 1);
    const std::string_view whole_line = without_return(lines.substr(line, line_end(at) - line));
    return {first_line + static_cast<uint64_t>(next - starts.begin()), lines_offset + at, whole_line,
            std::min(at - line, whole_line.size())};
}

size_t Document::width(uint64_t offset, uint64_t size) const {
    const size_t at = in_lines(offset);
    const size_t end = std::min(in_lines(offset + size), line_end(at));
    // A piece that goes on in the next line is marked up to the end of its own.
    return end > at ? end - at : 0;
}

// --- reading ---

bool Documents::next_line(Line& line) {
    // A line that was read to look ahead comes first.
    if (pending_) {
        line = *pending_;
        pending_.reset();
        return true;
    }
    if (!reader_.next(line.text)) return false;
    line.number = reader_.number();
    line.offset = offset_;
    offset_ += line.text.size() + 1;
    return true;
}

bool Documents::next(Document& document) {
    if (!begun_) {
        // How the file is built is found out at its first line that counts.
        begun_ = true;
        return begin(document);
    }
    Line line;
    while (next_line(line))
        if (!is_passed_over(line.text) && take(line, document)) return true;
    return false;
}

// The first document, with which it is known what the others are.
bool Documents::begin(Document& document) {
    Line line;
    do {
        if (!next_line(line)) return false;
    } while (is_passed_over(line.text));
    const OpenEnd end = open_end(line.text);
    if (!end.open) return take(line, document) || next(document);

    // The line is copied, because the reader's view ends with the next line.
    first_ = line;
    held_ = line.text;
    bool more = false;
    while ((more = next_line(line)) && is_passed_over(line.text)) read_on(line);
    // The next line begins an object by itself, so each line is a document. The first line is
    // broken, and is shown so.
    if (more && opens_object(line.text) && !end.awaits_object) {
        pending_ = line;
        held_.resize(first_.text.size());
        starts_.clear();
        first_.text = held_;
        return take(first_, document) || next(document);
    }
    // All lines belong to one document.
    while (more) {
        read_on(line);
        more = next_line(line);
    }
    document = document_in(held_, first_);
    ++count_;
    return true;
}

void Documents::read_on(const Line& line) {
    held_ += '\n';
    starts_.push_back(held_.size());
    held_ += line.text;
}

// The lines are the document, unless something else is said later.
Document Documents::document_in(std::string_view lines, const Line& first) const {
    return {.number = count_ + 1,
            .event_id = event_id::ioa_alert,
            .text = lines,
            .lines = lines,
            .starts = starts_,
            .first_line = first.number,
            .lines_offset = first.offset,
            .begin = 0,
            .is_literal = false};
}

// False when the line carries no document.
bool Documents::take(const Line& line, Document& document) {
    const std::string_view text = without_return(line.text);
    document = document_in(text, line);
    const ScriptLine script = read_script_line(text);
    if (script.is_script) {
        const bool carries = script.event_id == event_id::ioa_alert || script.event_id == event_id::memory_trojan;
        if (!carries || script.payload.empty()) return false;
        document.event_id = script.event_id;
        document.begin = static_cast<size_t>(script.payload.data() - text.data());
        document.is_literal = script.is_text;
        // A text is given to the decoder as the bytes that it stands for.
        if (script.is_text) value_ = literal_value(script.payload);
        document.text = script.is_text ? std::string_view(value_) : script.payload;
    }
    ++count_;
    return true;
}

}  // namespace zelhost
