#include "host/lib/printable.h"

#include <fmt/format.h>
#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>

#include <iterator>

namespace zelhost {

// RapidJSON's own check works on one character at a time.
bool is_utf8(std::string_view text) {
    struct Nowhere {
        void Put(char) {}
    } nowhere;
    rapidjson::MemoryStream stream(text.data(), text.size());
    while (stream.Tell() < text.size())
        if (!rapidjson::UTF8<>::Validate(stream, nowhere)) return false;
    return true;
}

// The controls from U+0080 to U+009F take two bytes, of which the first is C2.
std::string printable(std::string_view text) {
    const bool utf8 = is_utf8(text);
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        const bool two_byte_control = utf8 && byte == 0xC2 && next < 0xA0;
        if (byte < 0x20 || byte == 0x7F || (!utf8 && byte >= 0x80))
            fmt::format_to(std::back_inserter(out), "\\x{:02x}", byte);
        else if (two_byte_control)
            fmt::format_to(std::back_inserter(out), "\\x{:02x}", text[++i] & 0xFF);
        else
            out += text[i];
    }
    return out;
}

}  // namespace zelhost
