#include "host/lib/chain_text.h"

#include <fmt/format.h>

#include <ctime>

namespace zelhost {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr std::string_view kEllipsis = "…";
// The pictures of control characters stand in a row, from 0x2400 on.
constexpr uint32_t kPicturesOfControls = 0x2400;
constexpr uint32_t kPictureOfDelete = 0x2421;

// One character of a text; 0 bytes long when the bytes there are none.
struct Character {
    uint32_t code = 0;
    size_t size = 0;
};

// Refuses what UTF-8 refuses: an overlong form, a surrogate, a number beyond the last character.
Character character_at(std::string_view text) {
    // The lowest code that needs so many bytes. A lower one in the same number of bytes is an
    // overlong form.
    static constexpr uint32_t kLowest[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) return {first, 1};
    // The first byte tells how many bytes the character has.
    const size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc0 || first >= 0xf8 || text.size() < size) return {};
    uint32_t code = first & (0x7fU >> size);
    for (size_t i = 1; i < size; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xc0) != 0x80) return {};
        code = code << 6 | (next & 0x3f);
    }
    if (code < kLowest[size] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000)) return {};
    return {code, size};
}

// Characters that XML does not know, that turn the direction of what follows, or that break a line.
bool is_unseen(uint32_t code) {
    return (code >= 0x80 && code < 0xa0) || code == 0x61c || code == 0x200e || code == 0x200f ||
           (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069) || code == 0xfeff ||
           (code & 0xfffe) == 0xfffe;
}

// Of the pictures of controls, which are three bytes long.
void append_picture(std::string& text, uint32_t code) {
    text += static_cast<char>(0xe0 | code >> 12);
    text += static_cast<char>(0x80 | (code >> 6 & 0x3f));
    text += static_cast<char>(0x80 | (code & 0x3f));
}

// The one walk over a text for both kinds of repair. A wrong byte costs itself alone, so that what follows is still
// read.
std::string rewrite(std::string_view bytes, bool show_controls) {
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const Character character = character_at(bytes);
        const size_t size = character.size == 0 ? 1 : character.size;
        if (character.size == 0 || (show_controls && is_unseen(character.code)))
            text += kReplacement;
        else if (show_controls && character.code < ' ')
            append_picture(text, kPicturesOfControls + character.code);
        else if (show_controls && character.code == 0x7f)
            append_picture(text, kPictureOfDelete);
        else
            text += bytes.substr(0, size);
        bytes.remove_prefix(size);
    }
    return text;
}

// All bytes of a character but the first have the same two bits in front.
bool begins_character(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) != 0x80; }

// The text is valid UTF-8, so each character has one byte that begins it.
size_t count_characters(std::string_view text) {
    size_t count = 0;
    for (const char byte : text) count += begins_character(byte);
    return count;
}

// Where the character with this number begins.
size_t place_of(std::string_view text, size_t number) {
    for (size_t i = 0; i < text.size(); ++i)
        if (begins_character(text[i]) && number-- == 0) return i;
    return text.size();
}

}  // namespace

std::string repair_utf8(std::string_view bytes) { return rewrite(bytes, false); }

std::string clean_text(std::string_view bytes) { return rewrite(bytes, true); }

// A text of few bytes has few characters, which saves counting in most cases.
std::string cut_end(std::string_view text, size_t characters) {
    if (text.size() <= characters || count_characters(text) <= characters) return std::string(text);
    // The dots take the place of one character.
    return std::string(text.substr(0, place_of(text, characters - 1))).append(kEllipsis);
}

// The end of a path says more than its beginning and gets two thirds.
std::string cut_middle(std::string_view text, size_t characters) {
    if (text.size() <= characters) return std::string(text);
    const size_t count = count_characters(text);
    if (count <= characters) return std::string(text);
    const size_t front = (characters - 1) / 3;
    const size_t back = characters - 1 - front;
    std::string result(text.substr(0, place_of(text, front)));
    return result.append(kEllipsis).append(text.substr(place_of(text, count - back)));
}

// Both quotes, since a text may stand in an attribute of either.
std::string html_text(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char byte : text) switch (byte) {
            case '&': escaped += "&amp;"; break;
            case '<': escaped += "&lt;"; break;
            case '>': escaped += "&gt;"; break;
            case '"': escaped += "&quot;"; break;
            case '\'': escaped += "&#39;"; break;
            default: escaped += byte;
        }
    return escaped;
}

std::string time_text(int64_t milliseconds) {
    // The last moment of the year 9999.
    constexpr int64_t kLastOfFourDigits = 253402300799999;
    if (milliseconds < 0 || milliseconds > kLastOfFourDigits) return std::to_string(milliseconds);
    const time_t seconds = milliseconds / 1000;
    tm parts{};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03} UTC", parts.tm_year + 1900, parts.tm_mon + 1,
                       parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, milliseconds % 1000);
}

}  // namespace zelhost
