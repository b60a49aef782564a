#include "check/syntax.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>

namespace zel::check {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr size_t kLongestNumber = 63;  // bytes of a number that the parser looks at

bool is_space(char byte) { return static_cast<unsigned char>(byte) <= ' '; }

// Reads as the parser does and stops at the first byte that does not fit. Without recursion: the text may hold nothing
// but brackets.
class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {
        if (text_.size() > 4 && text_.starts_with(kByteOrderMark)) at_ = kByteOrderMark.size();
    }

    // Nothing when one value can be read.
    std::optional<SyntaxError> run() {
        read_document();
        return error_;
    }

private:
    // Each of the following is false once something is wrong.

    // `value_read` says that a value has just ended, so that a comma or a closing bracket is due. The last open bracket
    // says which of them fit.
    bool read_document() {
        for (bool value_read = false; !value_read || !open_.empty();) {
            if (!value_read) {
                if (!read_value(value_read)) return false;
                continue;
            }
            skip_spaces();
            const bool in_list = open_.back() == '[';
            if (byte() == ',') {
                ++at_;
                value_read = false;
                if (!in_list && !read_key()) return false;
            } else if (byte() == (in_list ? ']' : '}')) {
                close();
            } else {
                return fail(in_list ? "a comma or the list's closing bracket is needed here"
                                    : "a comma or the object's closing bracket is needed here");
            }
        }
        return true;
    }

    // A value without parts, an empty list or object, or the beginning of one, behind which the next value is to come.
    bool read_value(bool& value_read) {
        skip_spaces();
        value_read = true;
        switch (byte()) {
            case '{':
            case '[': return begin_parts(value_read);
            case '"': return read_string();
            case 't': return read_word("true");
            case 'f': return read_word("false");
            case 'n': return read_word("null");
            default: return read_number();
        }
    }

    bool begin_parts(bool& value_read) {
        const bool is_list = byte() == '[';
        if (open_.size() >= CJSON_NESTING_LIMIT) return fail("the brackets are nested too deeply");
        open_ += byte();
        ++at_;
        skip_spaces();
        if (byte() == (is_list ? ']' : '}')) {
            close();
            return true;
        }
        value_read = false;
        return is_list || read_key();
    }

    void close() {
        ++at_;
        open_.pop_back();
    }

    bool read_key() {
        skip_spaces();
        if (byte() != '"') return fail("a key in quotes is needed here");
        if (!read_string()) return false;
        skip_spaces();
        if (byte() != ':') return fail("a colon is needed here");
        ++at_;
        return true;
    }

    bool read_word(std::string_view word) {
        if (!text_.substr(at_).starts_with(word)) return fail("a value is needed here");
        at_ += word.size();
        return true;
    }

    // Like the parser, it takes all bytes that can occur in a number and lets strtod say where the number ends.
    bool read_number() {
        if (byte() != '-' && (byte() < '0' || byte() > '9')) return fail("a value is needed here");
        const size_t end = std::min(text_.find_first_not_of("0123456789+-eE.", at_), text_.size());
        const std::string digits(text_.substr(at_, std::min(end - at_, kLongestNumber)));
        char* rest = nullptr;
        strtod(digits.c_str(), &rest);
        if (rest == digits.c_str()) return fail("this is no number");
        at_ += static_cast<size_t>(rest - digits.c_str());
        return true;
    }

    // The parser looks for the closing quote first and for the escapes then.
    bool read_string() {
        const size_t begin = at_;
        size_t end = begin + 1;
        while (end < text_.size() && text_[end] != '"') end += text_[end] == '\\' ? 2 : 1;
        if (end >= text_.size()) return fail_at(begin, text_.size() - begin, "the text that begins here does not end");
        for (at_ = begin + 1; at_ < end;)
            if (text_[at_] != '\\')
                ++at_;
            else if (!read_escape(end))
                return false;
        at_ = end + 1;
        return true;
    }

    bool read_escape(size_t end) {
        if (text_[at_ + 1] == 'u') return read_character(end);
        if (std::string_view("bfnrt\"\\/").find(text_[at_ + 1]) == std::string_view::npos)
            return fail_at(at_, 2, "there is no such escape");
        at_ += 2;
        return true;
    }

    // A pair of escapes makes one character beyond 0xFFFF, and neither half may stand alone. Digits that are none make
    // the number 0.
    bool read_character(size_t end) {
        const size_t begin = at_;
        if (end - begin < kEscapeSize) return fail_at(begin, 2, "four hexadecimal digits are needed behind this");
        const unsigned first = code_unit(text_.substr(begin));
        at_ += kEscapeSize;
        if (first < 0xD800 || first > 0xDFFF) return true;
        const bool pair = first < 0xDC00 && end - at_ >= kEscapeSize && text_.substr(at_).starts_with("\\u");
        const unsigned second = pair ? code_unit(text_.substr(at_)) : 0;
        if (second < 0xDC00 || second > 0xDFFF)
            return fail_at(begin, kEscapeSize, "this is half a character, and the other half is missing");
        at_ += kEscapeSize;
        return true;
    }

    bool fail(const char* reason) { return fail_at(at_, 1, reason); }
    bool fail_at(size_t offset, size_t size, const char* reason) {
        if (offset >= text_.size())
            error_ = {"the document ends before its JSON is complete", text_.size(), 0};
        else
            error_ = {reason, offset, size};
        return false;
    }

    void skip_spaces() {
        while (at_ < text_.size() && is_space(text_[at_])) ++at_;
    }
    char byte() const { return at_ < text_.size() ? text_[at_] : '\0'; }

    std::string_view text_;
    size_t at_ = 0;
    std::string open_;  // the brackets that are not closed
    std::optional<SyntaxError> error_;
};

}  // namespace

unsigned code_unit(std::string_view escape) {
    const std::string digits(escape.substr(std::min<size_t>(2, escape.size()), 4));
    if (digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return 0;
    return static_cast<unsigned>(strtoul(digits.c_str(), nullptr, 16));
}

// A fault in front of the end is the reason as it stands. A fault at the end has one of three causes: a NUL byte, an
// empty document, or one that was cut off. When no fault is found, only the parser's own place is known.
SyntaxError find_syntax_error(std::string_view text, size_t stopped_at) {
    const size_t end = std::min(text.find('\0'), text.size());
    const auto error = Reader(text.substr(0, end)).run();
    if (!error.has_value()) return {"no JSON from this byte on", std::min(stopped_at, text.size()), 1};
    if (error->offset < end) return *error;
    if (end < text.size()) return {"a NUL byte ends the document before its JSON is complete", end, 1};
    const bool blank = std::ranges::all_of(text, is_space);
    return {blank ? "the document is empty" : error->reason, end, 0};
}

}  // namespace zel::check
