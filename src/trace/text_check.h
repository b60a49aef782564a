// The check that a string passes before it goes into a message. A receiver that treats text strictly would refuse a
// whole message for one string; the check is milder than such a receiver, since it looks at the pattern of the bytes
// alone.
//
// All functions are safe on any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <source_location>
#include <string>

// By byte value below 0x80: 1 for what may stand in text. 0 is among it because fixed arrays are checked with their
// padding.
inline constexpr std::array<uint8_t, 0x80> TextCharClass = [] {
    std::array<uint8_t, 0x80> table{};
    for (size_t byte = 0x20; byte <= 0x7E; ++byte) table[byte] = 1;
    for (const size_t control : {0x00U, 0x07U, 0x08U, 0x09U, 0x0AU, 0x0CU, 0x0DU, 0x1BU}) table[control] = 1;
    return table;
}();

// Every byte is below 0x80 and may stand in text. An empty text passes.
bool IsAsciiText(const char* text, size_t length);

// At least one whole multi-byte sequence is there, every byte outside of sequences may stand in text, and no sequence
// is broken but by the text's end. Overlong forms, surrogates and sequences of up to six bytes pass.
bool IsUtf8Text(const char* text, size_t length);

namespace zel {

// Where IsUtf8Text ends: null when the text passes, else the byte that cannot stand or the first byte of a sequence
// that is broken or cut off. For a text of plain ASCII, which has no sequence, it is the end. The text must not be
// empty.
const char* refused_byte(const char* text, size_t length);

}  // namespace zel

// True when the text may go into a message. Text beyond ASCII costs one INFO line, refused text two, which name the
// place of the call.
bool CheckDsStr(const std::string& text, std::source_location where = std::source_location::current());
// For a fixed array, checked over its whole size.
bool CheckDsStr(const char* bytes, size_t size, std::source_location where = std::source_location::current());
