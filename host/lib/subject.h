// Texts of an agent as parts of a subject or a message id, where a dot separates and some characters are not allowed.
// Any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zelhost {

// Letters, digits, - and _ stand as they are, every other byte as % and two hexadecimal digits; an empty text is one %.
// So a token holds no dot, wildcard, space or control byte, and two texts never have the same token.
std::string subject_token(std::string_view text);

// The text behind a token; nothing for what subject_token cannot have made.
std::optional<std::string> text_of_token(std::string_view token);

// Whether this is one subject without wildcards: printable tokens with dots between them.
bool is_subject(std::string_view subject);

}  // namespace zelhost
