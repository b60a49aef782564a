#include "trace/text_check.h"

#include <bit>
#include <cstring>

#include "common/log.h"
#include "decode/observer.h"

namespace {

// Whether a byte may stand outside of a sequence.
bool may_stand(unsigned char byte) { return byte < TextCharClass.size() && TextCharClass[byte] != 0; }

// Eight bytes at a time: true when all of them are from 0x20 to 0x7E, the usual case. Every partial sum stays inside
// its byte as long as no top bit is set, and with one set the answer is false anyway.
bool all_printable(const char* bytes) {
    constexpr uint64_t kOnes = 0x0101010101010101;
    constexpr uint64_t kTops = 0x80 * kOnes;
    uint64_t word = 0;
    memcpy(&word, bytes, sizeof word);
    const uint64_t delete_or_above = word | (word + kOnes);
    const uint64_t not_below_blank = (word | kTops) - 0x20 * kOnes;
    return ((delete_or_above | ~not_below_blank) & kTops) == 0;
}

}  // namespace

// Long texts go by eight bytes. A word with a control character in it is looked at byte by byte.
bool IsAsciiText(const char* text, size_t length) {
    const char* const end = text + length;
    while (text != end) {
        if (end - text >= 8 && all_printable(text)) {
            text += 8;
        } else if (may_stand(static_cast<unsigned char>(*text))) {
            ++text;
        } else {
            return false;
        }
    }
    return true;
}

// The top bits of a lead byte tell the size of its sequence. A sequence that the end cuts off neither helps nor harms.
const char* zel::refused_byte(const char* text, size_t length) {
    bool sequence_seen = false;
    const char* const end = text + length;
    while (text != end) {
        const char* const first = text;
        const auto lead = static_cast<unsigned char>(*text++);
        if (lead < 0x80) {
            if (!may_stand(lead)) return first;
            continue;
        }
        const int size = std::countl_one(lead);  // of the sequence, lead byte included
        if (size == 1 || size > 6) return first;
        for (int following = 1; following < size; ++following) {
            if (text == end) return sequence_seen ? nullptr : first;
            if (std::countl_one(static_cast<unsigned char>(*text++)) != 1) return first;
        }
        sequence_seen = true;
    }
    return sequence_seen ? nullptr : end;
}

bool IsUtf8Text(const char* text, size_t length) { return length > 0 && zel::refused_byte(text, length) == nullptr; }

// Most texts are ASCII, so that is asked first.
bool CheckDsStr(const std::string& text, std::source_location where) {
    if (IsAsciiText(text.data(), text.size())) return true;
    LOG_INFO_AT(where, "[ds]str: %s not Ascii", text.c_str());
    const char* const bad = zel::refused_byte(text.data(), text.size());
    if (bad == nullptr) return true;
    LOG_INFO_AT(where, "[ds]str: %s not utf-8", text.c_str());
    zel::observe::refused_text(text.data(), text.size(), static_cast<size_t>(bad - text.data()));
    return false;
}

bool CheckDsStr(const char* bytes, size_t size, std::source_location where) {
    // The log needs an end of text, which an array may lack; only a text beyond ASCII pays for the copy.
    return IsAsciiText(bytes, size) || CheckDsStr(std::string(bytes, size), where);
}
