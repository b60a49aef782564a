#include "host/lib/subject.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace zelhost {
namespace {

// In the ASCII range, whatever the locale says.
bool stands_as_it_is(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

}  // namespace

std::string subject_token(std::string_view text) {
    if (text.empty()) return "%";
    std::string token;
    for (const char c : text)
        stands_as_it_is(c) ? token += c : token += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    return token;
}

// To encode the result again and to compare is the simplest test that a token is well formed.
std::optional<std::string> text_of_token(std::string_view token) {
    if (token == "%") return std::string();
    // Damage is not looked for here. The comparison at the end finds it.
    std::string text;
    for (size_t at = 0; at < token.size(); ++at) {
        unsigned byte = static_cast<unsigned char>(token[at]);
        if (token[at] == '%') {
            const std::string_view digits = token.substr(at + 1, 2);
            std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
            at += 2;
        }
        text += static_cast<char>(byte);
    }
    if (subject_token(text) != token) return {};
    return text;
}

bool is_subject(std::string_view subject) {
    // No space, no control byte and nothing beyond ASCII.
    const auto forbidden = [](char c) { return c <= ' ' || c > '~' || c == '*' || c == '>'; };
    return !subject.empty() && subject.front() != '.' && subject.back() != '.' &&
           subject.find("..") == std::string_view::npos && std::ranges::none_of(subject, forbidden);
}

}  // namespace zelhost
