// What the fuzz targets share.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// A property of the code under test; unlike assert it is never compiled out.
#define FUZZ_CHECK(condition)                                                         \
    do {                                                                              \
        if (!(condition)) {                                                           \
            fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                  \
        }                                                                             \
    } while (false)

namespace fuzz {

// Takes an input apart, from its front. What is missing at the end is 0 or empty.
class Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

    bool empty() const { return rest_.empty(); }
    std::string_view rest() const { return rest_; }
    std::string_view take(size_t size) {
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(taken.size());
        return taken;
    }
    template <class Number>
    Number number() {
        Number value{};
        const std::string_view taken = take(sizeof value);
        memcpy(&value, taken.data(), taken.size());
        return value;
    }
    uint8_t byte() { return number<uint8_t>(); }
    // Below `limit`.
    uint32_t below(uint32_t limit) { return byte() % limit; }
    // Any bytes behind one byte with their number, up to 255.
    std::string_view text() { return take(byte()); }

private:
    std::string_view rest_;
};

// The longest text that may stand in the place of a %s of a log line; set by targets that know it.
inline size_t longest_text = SIZE_MAX;

}  // namespace fuzz
