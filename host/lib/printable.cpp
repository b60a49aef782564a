#include "host/lib/printable.h"

#include <fmt/format.h>

#include <iterator>

#include "host/lib/utf8.h"

namespace zelhost {

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
