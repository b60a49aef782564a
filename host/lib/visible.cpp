#include "host/lib/visible.h"

#include <locale.h>
#include <wchar.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "host/lib/utf8.h"

namespace zelhost {
namespace {

// The C library knows the width of a character only in a locale of UTF-8, whatever the user's is. Never freed: it is
// used up to the end.
int columns_of(wchar_t character) {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (utf8 == nullptr) return -1;
    // The locale is set for this thread alone and taken back at once.
    const locale_t former = uselocale(utf8);
    const int columns = wcwidth(character);
    uselocale(former);
    return columns;
}

// Characters without a shape that change how others are shown, such as those that turn the direction of writing.
bool is_hidden(wchar_t character) {
    return (character >= 0x200B && character <= 0x200F) || (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2060 && character <= 0x206F) || character == 0xFEFF;
}

std::string escaped(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += "\\x";
        text += kDigits[value >> 4];
        text += kDigits[value & 15];
    }
    return text;
}

// How many bytes the character at the text's beginning has: 1 for a byte that begins none.
size_t character_size(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const size_t size = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    return size <= text.size() && is_utf8(text.substr(0, size)) ? size : 1;
}

// The bytes are valid UTF-8 here.
wchar_t decoded(std::string_view character) {
    auto code = static_cast<uint32_t>(static_cast<unsigned char>(character.front()));
    if (character.size() > 1) code &= 0x7Fu >> character.size();
    for (const char byte : character.substr(1)) code = code << 6 | (static_cast<unsigned char>(byte) & 0x3Fu);
    return static_cast<wchar_t>(code);
}

}  // namespace

Cell cell_at(std::string_view line, size_t at) {
    const std::string_view character = line.substr(at, character_size(line.substr(at)));
    const size_t end = at + character.size();
    const auto byte = static_cast<unsigned char>(character.front());
    // Printable ASCII is nearly all of most texts and needs no look-up.
    if (byte >= 0x20 && byte < 0x7F) return {at, end, std::string(character), 1};
    const wchar_t code = decoded(character);
    const int columns = character.size() == 1 || is_hidden(code) ? -1 : columns_of(code);
    if (columns >= 0) return {at, end, std::string(character), static_cast<size_t>(columns)};
    std::string text = escaped(character);
    const size_t size = text.size();
    return {at, end, std::move(text), size};
}

size_t character_begin(std::string_view line, size_t at) {
    // A character has at most three bytes before any byte of it.
    for (size_t back = std::min<size_t>(at, 3); back > 0; --back)
        if (character_size(line.substr(at - back)) > back) return at - back;
    return at;
}

std::string visible(std::string_view text) {
    std::string shown;
    for (size_t at = 0; at < text.size();) {
        const Cell cell = cell_at(text, at);
        shown += cell.text;
        at = cell.end;
    }
    return shown;
}

}  // namespace zelhost
