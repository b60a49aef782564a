#include "host/lib/utf8.h"

#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>

#include <algorithm>

namespace zelhost {

using rapidjson::UTF8;

size_t utf8_prefix(std::string_view text) {
    // The library wants to write somewhere while it checks.
    struct Nowhere {
        void Put(char) {}
    } nowhere;
    const auto is_ascii = [](char byte) { return static_cast<unsigned char>(byte) < 0x80; };
    rapidjson::MemoryStream stream(text.data(), text.size());
    for (;;) {
        // Most texts are ASCII from end to end.
        stream.src_ = std::find_if_not(stream.src_, stream.end_, is_ascii);
        const size_t begin = stream.Tell();
        if (begin == text.size()) return begin;
        // Behind its end the stream gives zeros, which no character goes on with.
        if (!UTF8<>::Validate(stream, nowhere)) return begin;
    }
}

std::string latin1_json(std::string_view bytes) {
    constexpr std::string_view kShort = "\"\\\b\f\n\r\t";
    constexpr std::string_view kLetters = "\"\\bfnrt";
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string json = "\"";
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        // These characters have a short escape each.
        if (const size_t at = kShort.find(character); at != std::string_view::npos)
            (json += '\\') += kLetters[at];
        else if (byte < 0x20 || byte >= 0x80)
            ((json += "\\u00") += kDigits[byte >> 4]) += kDigits[byte & 0xf];
        else
            json += character;
    }
    return json += '"';
}

}  // namespace zelhost
