#include "check/places.h"

#include <algorithm>
#include <unordered_set>

#include "check/syntax.h"

namespace zel::check {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool is_space(char byte) { return static_cast<unsigned char>(byte) <= ' '; }

bool is_plain(std::string_view key) {
    return !key.empty() && std::ranges::all_of(key, [](unsigned char byte) {
        return byte == '_' || byte == '-' || (byte >= '0' && byte <= '9') ||
               ((byte | 0x20U) >= 'a' && (byte | 0x20U) <= 'z');
    });
}

// A key with other characters than letters and digits stands in brackets and quotes, so that a path stays one word.
std::string step_to(const cJSON* node, size_t index, bool in_array, bool at_root) {
    if (in_array) return "[" + std::to_string(index) + "]";
    const std::string_view key = node->string;
    if (is_plain(key)) return (at_root ? "" : ".") + std::string(key);
    std::string step = "[\"";
    for (const char byte : key) step += is_space(byte) || byte == '"' || byte == '\x7f' ? '?' : byte;
    return step += "\"]";
}

// Walks a document that cJSON has parsed, so its text is known to be in order. Nesting is at most what cJSON takes.
class Walk {
public:
    Walk(std::string_view text, const std::vector<const cJSON*>& nodes)
        : text_(text), wanted_(nodes.begin(), nodes.end()) {
        if (text_.starts_with(kByteOrderMark)) at_ = kByteOrderMark.size();
    }

    // A node that was found is no longer wanted, so the walk can end early.
    void value(const cJSON* node) {
        skip_spaces();
        const size_t begin = at_;
        const bool is_list = cJSON_IsObject(node) || cJSON_IsArray(node);
        if (is_list)
            children(node);
        else
            scalar();
        if (wanted_.erase(node) != 0) found_[node] = {path_, begin, is_list ? 1 : at_ - begin};
    }

    Places take() { return std::move(found_); }

private:
    // Between the brackets. The walk ends when there is nothing more to find.
    void children(const cJSON* node) {
        ++at_;
        const bool in_array = cJSON_IsArray(node);
        const size_t length = path_.size();
        size_t index = 0;
        for (const cJSON* child = node->child; child != nullptr; child = child->next, ++index) {
            if (wanted_.empty()) return;
            skip_spaces();
            if (!in_array) {
                string();
                skip_spaces();
                ++at_;  // the colon
            }
            path_ += step_to(child, index, in_array, length == 0);
            value(child);
            path_.resize(length);
            skip_spaces();
            if (child->next != nullptr) ++at_;  // the comma
        }
        skip_spaces();
        ++at_;
    }

    // A number or a word ends at a blank, a comma or a closing bracket.
    void scalar() {
        if (byte() == '"') return string();
        while (at_ < text_.size() && !is_space(text_[at_]) &&
               std::string_view(",]}").find(text_[at_]) == std::string_view::npos)
            ++at_;
    }

    // The byte behind a backslash belongs to the escape, so an escaped quote does not end the text.
    void string() {
        for (++at_; at_ < text_.size() && text_[at_] != '"'; ++at_)
            if (text_[at_] == '\\') ++at_;
        ++at_;
    }

    void skip_spaces() {
        while (at_ < text_.size() && is_space(text_[at_])) ++at_;
    }
    char byte() const { return at_ < text_.size() ? text_[at_] : '\0'; }

    std::string_view text_;
    std::unordered_set<const cJSON*> wanted_;  // those that were not found yet
    size_t at_ = 0;
    std::string path_;  // of the value in hand
    Places found_;
};

// How many bytes of UTF-8 an escape \uXXXX stands for; with the first half of a pair, the pair.
size_t escaped_size(std::string_view escape) {
    const unsigned code = code_unit(escape);
    if (code < 0x80) return 1;
    if (code < 0x800) return 2;
    return code >= 0xD800 && code <= 0xDBFF ? 4 : 3;
}

}  // namespace

Places find_places(std::string_view text, const cJSON* tree, const std::vector<const cJSON*>& nodes) {
    Walk walk(text, nodes);
    if (tree != nullptr && !nodes.empty()) walk.value(tree);
    return walk.take();
}

size_t unit_size(std::string_view literal, size_t at) {
    if (literal.substr(at, 1) != "\\") return 1;
    if (literal.substr(at, 2) != "\\u") return 2;
    return escaped_size(literal.substr(at)) == 4 ? 2 * kEscapeSize : kEscapeSize;
}

// Counts the bytes of the value along the literal. An escape by number can stand for several of them.
size_t byte_in_literal(std::string_view literal, size_t index) {
    size_t at = 1;
    for (size_t value = 0; at < literal.size(); at += unit_size(literal, at)) {
        const bool unicode = literal.substr(at, 2) == "\\u";
        value += unicode ? escaped_size(literal.substr(at)) : 1;
        if (value > index) return at;
    }
    return at;
}

size_t end_of_text(std::string_view literal) {
    for (size_t at = 1; at < literal.size(); at += unit_size(literal, at))
        if (literal.substr(at, 2) == "\\u" && code_unit(literal.substr(at)) == 0) return at;
    return literal.size();
}

}  // namespace zel::check
