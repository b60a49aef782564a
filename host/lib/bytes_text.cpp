#include "host/lib/bytes_text.h"

#include <array>
#include <cstdint>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

// What each character stands for in an alphabet of digits.
// Made at compile time. A character that is no digit has the value kNone.
class Digits {
public:
    constexpr Digits() { values_.fill(kNone); }
    constexpr Digits& add(std::string_view characters, uint8_t first) {
        for (const char character : characters) values_[static_cast<unsigned char>(character)] = first++;
        return *this;
    }
    constexpr uint8_t operator[](char character) const { return values_[static_cast<unsigned char>(character)]; }

    static constexpr uint8_t kNone = 0xff;

private:
    std::array<uint8_t, 256> values_{};
};

constexpr Digits kHex = Digits().add("0123456789abcdef", 0).add("ABCDEF", 10);
constexpr Digits kBase64 =
    Digits().add("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/", 0).add("-_", 62);

constexpr std::string_view kSpace = " \t\r\n\v\f";

// Collects the bits of the digits, and gives a byte whenever eight are there. What is left at the end must be less than
// a digit and 0.
// `bits` is how many bits a digit has: 4 for hexadecimal, 6 for base64.
std::string collect(std::string_view text, const Digits& digits, unsigned bits, const char* name) {
    std::string bytes;
    uint32_t pending = 0;
    unsigned count = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (kSpace.find(text[i]) != std::string_view::npos) continue;
        const uint8_t value = digits[text[i]];
        if (value == Digits::kNone) throw Failure("character {} is no {} digit", i + 1, name);
        // The bits that were given out are cut off. No more than 16 are ever needed.
        pending = (pending << bits | value) & 0xffff;
        count += bits;
        if (count < 8) continue;
        count -= 8;
        bytes += static_cast<char>(pending >> count);
    }
    // A digit too many is half a byte, which nobody can have meant.
    if (count >= bits || (pending & ((1u << count) - 1)) != 0) throw Failure("the last byte lacks a {} digit", name);
    return bytes;
}

}  // namespace

std::string bytes_from_hex(std::string_view text) { return collect(text, kHex, 4, "hexadecimal"); }

// The padding says nothing that the digits do not say.
std::string bytes_from_base64(std::string_view text) {
    const size_t last = text.find_last_not_of(std::string(kSpace) + '=');
    return collect(text.substr(0, last == std::string_view::npos ? 0 : last + 1), kBase64, 6, "base64");
}

}  // namespace zelhost
