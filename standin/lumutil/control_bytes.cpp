#include "control_bytes.h"

#include <cstdio>
#include <cstring>

namespace lumutil {
namespace {

unsigned char byte_at(const char* text) { return static_cast<unsigned char>(*text); }

// The longest form has six characters and a terminator.
struct Escape {
    char text[8];
    size_t replaced;  // bytes of the line
};

Escape escape_of(const char* text) {
    Escape escape{{}, 1};
    if (*text == '\n') {
        strcpy(escape.text, "\\n");
    } else if (*text == '\r') {
        strcpy(escape.text, "\\r");
    } else if (byte_at(text) > 0x7F) {
        escape.replaced = 2;
        snprintf(escape.text, sizeof escape.text, "\\u%04x", byte_at(text + 1));
    } else {
        snprintf(escape.text, sizeof escape.text, "\\x%02x", byte_at(text));
    }
    return escape;
}

}  // namespace

size_t escape_controls(const char* line, const char* own, size_t size, char* out) {
    size_t written = 0;
    const auto add = [&](const char* text, size_t length) {
        if (out != nullptr) memcpy(out + written, text, length);
        written += length;
    };
    for (size_t at = 0; at < size;) {
        if (!is_control(line + at) || (own != nullptr && own[at] != line[at])) {
            add(line + at++, 1);
            continue;
        }
        const Escape escape = escape_of(line + at);
        add(escape.text, strlen(escape.text));
        at += escape.replaced;
    }
    if (out != nullptr) out[written] = '\0';
    return written;
}

}  // namespace lumutil
