#include "host/lib/json_scan.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace zelhost {
namespace {

constexpr std::string_view kSpaces = " \t\r\n";

// Behind the closing quote of a string that begins at `at`; the text's end when there is none.
// A backslash takes the next character with it, whatever it is.
size_t string_end(std::string_view text, size_t at) {
    for (++at; (at = text.find_first_of("\"\\", at)) != std::string_view::npos; at += 2)
        if (text[at] == '"') return at + 1;
    return text.size();
}

// --- escapes ---

constexpr uint32_t kReplacement = 0xFFFD;

void append_utf8(std::string& to, uint32_t code) {
    if (code < 0x80) {
        to += static_cast<char>(code);
    } else if (code < 0x800) {
        to += static_cast<char>(0xC0 | code >> 6);
        to += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        to += static_cast<char>(0xE0 | code >> 12);
        to += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        to += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        to += static_cast<char>(0xF0 | code >> 18);
        to += static_cast<char>(0x80 | (code >> 12 & 0x3F));
        to += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        to += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// The number of an escape \uXXXX at `at`, or one that is no code unit.
// Four digits are needed. Fewer are no escape.
uint32_t code_unit(std::string_view literal, size_t at) {
    uint32_t code = UINT32_MAX;
    if (literal.substr(at, 2) != "\\u" || at + 6 > literal.size()) return code;
    const char* const digits = literal.data() + at + 2;
    if (std::from_chars(digits, digits + 4, code, 16).ptr != digits + 4) return UINT32_MAX;
    return code;
}

// Appends what the character or escape at `at` stands for, and gives its size in the literal.
size_t append_unit(std::string_view literal, size_t at, std::string& to) {
    if (literal[at] != '\\' || at + 1 == literal.size()) {
        to += literal[at];
        return 1;
    }
    if (literal[at + 1] != 'u') {
        // An unknown letter stands for itself.
        constexpr std::string_view kNames = "bfnrt";
        const size_t name = kNames.find(literal[at + 1]);
        to += name == std::string_view::npos ? literal[at + 1] : "\b\f\n\r\t"[name];
        return 2;
    }
    const uint32_t first = code_unit(literal, at);
    // Two escapes together make a character beyond 16 bits.
    if (first >= 0xD800 && first < 0xDC00) {
        const uint32_t second = code_unit(literal, at + 6);
        if (second >= 0xDC00 && second < 0xE000) {
            append_utf8(to, 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00));
            return 12;
        }
    }
    // Half of such a pair stands for no character.
    append_utf8(to, first > 0xFFFF || (first >= 0xD800 && first < 0xE000) ? kReplacement : first);
    return std::min<size_t>(6, literal.size() - at);
}

// Takes the literal apart until `stop` says that the value has grown enough; gives the place of the last unit.
template <class Stop>
size_t walk_literal(std::string_view literal, std::string& value, Stop stop) {
    size_t at = 1;
    // The place is that of the unit, and not of the byte in its value.
    while (at < literal.size() && literal[at] != '"') {
        const size_t size = append_unit(literal, at, value);
        if (stop(value.size())) break;
        at += size;
    }
    return at;
}

}  // namespace

// --- members ---

MemberScan::MemberScan(std::string_view text) : text_(text), good_(take('{')) {}

bool MemberScan::next(ScannedMember& member) {
    // A member begins with a quote.
    skip_spaces();
    if (!good_ || at_ >= text_.size() || text_[at_] != '"') return false;
    const size_t key = at_ + 1;
    skip_string();
    member.key = text_.substr(key, at_ - key - 1);
    good_ = take(':');
    skip_spaces();
    const size_t value = at_;
    if (!good_ || !skip_value()) return good_ = false;
    member.value = text_.substr(value, at_ - value);
    // Without a comma this was the last member.
    good_ = take(',');
    return true;
}

bool MemberScan::is_whole() const {
    return at_ < text_.size() && text_[at_] == '}' &&
           text_.find_first_not_of(kSpaces, at_ + 1) == std::string_view::npos;
}

bool MemberScan::take(char wanted) {
    skip_spaces();
    if (at_ >= text_.size() || text_[at_] != wanted) return false;
    ++at_;
    return true;
}

void MemberScan::skip_spaces() { at_ = std::min(text_.find_first_not_of(kSpaces, at_), text_.size()); }

void MemberScan::skip_string() { at_ = string_end(text_, at_); }

// Of an object or a list only the number of brackets matters. False when it does not end.
bool MemberScan::skip_value() {
    size_t depth = 0;
    const size_t begin = at_;
    while (at_ < text_.size()) {
        // Within brackets only brackets and quotes matter.
        if (depth > 0) at_ = std::min(text_.find_first_of("\"{[]}", at_), text_.size());
        if (at_ == text_.size()) break;
        switch (text_[at_]) {
            case '"':
                skip_string();
                if (depth == 0) return true;
                break;
            case '{':
            case '[':
                ++depth;
                ++at_;
                break;
            case '}':
            case ']':
                if (depth == 0) return at_ > begin;
                ++at_;
                if (--depth == 0) return true;
                break;
            default:  // a number or a word
                at_ = std::min(text_.find_first_of(" \t\r\n,}]", at_), text_.size());
                return at_ > begin;
        }
    }
    return false;
}

// --- ends ---

OpenEnd open_end(std::string_view text) {
    // The brackets that are open, from the outside in.
    std::string brackets;
    char last = '\0';
    for (size_t at = 0; (at = text.find_first_not_of(kSpaces, at)) != std::string_view::npos;) {
        last = text[at];
        if (last == '"') {
            at = string_end(text, at);
            // A quote without its partner: the text ends within a string.
            if (at == text.size() && (at < 2 || text[at - 1] != '"')) return {true, false};
            continue;
        }
        if (last == '{' || last == '[') brackets += last;
        if ((last == '}' || last == ']') && !brackets.empty()) brackets.pop_back();
        ++at;
    }
    if (brackets.empty()) return {};
    // Behind a bracket, a comma or a colon a value is to come. Then the next line may go on with an
    // object.
    const bool in_list = brackets.back() == '[' && (last == '[' || last == ',');
    return {true, in_list || last == ':'};
}

// --- strings ---

std::string literal_value(std::string_view literal) {
    std::string value;
    walk_literal(literal, value, [](size_t) { return false; });
    return value;
}

size_t literal_place(std::string_view literal, size_t index) {
    std::string value;
    return walk_literal(literal, value, [index](size_t size) { return size > index; });
}

}  // namespace zelhost
