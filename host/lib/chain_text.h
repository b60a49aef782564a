// Texts of a chain, made fit to be drawn. They come from whoever attacked the host, so nothing is taken for granted:
// neither their encoding nor their length nor that they are meant to be read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zelhost {

// Valid UTF-8: a byte that belongs to no character becomes U+FFFD.
std::string repair_utf8(std::string_view bytes);

// Valid UTF-8 in which each character can be seen: a control character becomes its picture, and what would turn the
// direction of the text U+FFFD.
std::string clean_text(std::string_view bytes);

// At most that many characters of a clean text, with "…" for what was cut: at its end, or in its middle, where a path
// says least.
// `characters` must be at least 1. A character may be wider than one column.
std::string cut_end(std::string_view text, size_t characters);
std::string cut_middle(std::string_view text, size_t characters);

// A clean text as it stands in HTML, between tags or in a quoted attribute.
std::string html_text(std::string_view text);

// "2024-11-24 23:00:00.000 UTC" of milliseconds since 1970; the number alone when no such year is written with four
// digits.
std::string time_text(int64_t milliseconds);

}  // namespace zelhost
