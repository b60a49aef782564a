#include "suppress/cityhash.h"

#include <cstring>
#include <utility>

// Words are read in the machine's order; the published values are those of a little-endian machine.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

namespace zel {
namespace {

// These three and kMix belong to the algorithm.
constexpr uint64_t k0 = 0xc3a5c85c97cb3127;
constexpr uint64_t k1 = 0xb492b66fbe98f273;
constexpr uint64_t k2 = 0x9ae16a3b2f90404f;
constexpr uint64_t kMix = 0x9ddfea08eb382d69;
constexpr size_t kBlock = 64;

using Pair = std::pair<uint64_t, uint64_t>;

template <class Word>
uint64_t load(const char* at) {
    Word word;
    memcpy(&word, at, sizeof word);
    return word;
}
uint64_t load64(const char* at) { return load<uint64_t>(at); }
uint64_t load32(const char* at) { return load<uint32_t>(at); }

constexpr uint64_t rotate_right(uint64_t value, int bits) { return (value >> bits) | (value << (64 - bits)); }
constexpr uint64_t shift_mix(uint64_t value) { return value ^ (value >> 47); }

constexpr uint64_t mix(uint64_t low, uint64_t high, uint64_t factor = kMix) {
    const uint64_t a = shift_mix((low ^ high) * factor);
    return shift_mix((high ^ a) * factor) * factor;
}

// Texts of 4 to 64 bytes bring their length in through the factor.
constexpr uint64_t length_factor(size_t size) { return k2 + size * 2; }

// Each size class reads words from both ends of the text. In a text that is no multiple of 8 they overlap, so no byte
// is left out and none is read beyond the end.
uint64_t hash_up_to_16(const char* s, size_t size) {
    const uint64_t factor = length_factor(size);
    if (size >= 8) {
        const uint64_t a = load64(s) + k2;
        const uint64_t b = load64(s + size - 8);
        return mix(rotate_right(b, 37) * factor + a, (rotate_right(a, 25) + b) * factor, factor);
    }
    if (size >= 4) return mix(size + (load32(s) << 3), load32(s + size - 4), factor);
    if (size == 0) return k2;
    const uint64_t ends = load<uint8_t>(s) + (load<uint8_t>(s + size / 2) << 8);
    const uint64_t tail = size + (load<uint8_t>(s + size - 1) << 2);
    return shift_mix(ends * k2 ^ tail * k0) * k2;
}

uint64_t hash_17_to_32(const char* s, size_t size) {
    const uint64_t factor = length_factor(size);
    const uint64_t a = load64(s) * k1;
    const uint64_t b = load64(s + 8);
    const uint64_t c = load64(s + size - 8) * factor;
    const uint64_t d = load64(s + size - 16) * k2;
    return mix(rotate_right(a + b, 43) + rotate_right(c, 30) + d, a + rotate_right(b + k2, 18) + c, factor);
}

uint64_t hash_33_to_64(const char* s, size_t size) {
    const uint64_t factor = length_factor(size);
    const uint64_t a = load64(s) * k2;
    const uint64_t b = load64(s + 8);
    const uint64_t c = load64(s + size - 24);
    const uint64_t d = load64(s + size - 32);
    const uint64_t e = load64(s + 16) * k2;
    const uint64_t f = load64(s + 24) * 9;
    const uint64_t g = load64(s + size - 8);
    const uint64_t h = load64(s + size - 16) * factor;
    const uint64_t u = rotate_right(a + g, 43) + (rotate_right(b, 30) + c) * 9;
    const uint64_t v = ((a + g) ^ d) + f + 1;
    const uint64_t w = __builtin_bswap64((u + v) * factor) + h;
    const uint64_t x = rotate_right(e + f, 42) + c;
    const uint64_t y = (__builtin_bswap64((v + w) * factor) + g) * factor;
    const uint64_t z = e + f + c;
    const uint64_t p = __builtin_bswap64((x + z) * factor + y) + b;
    return shift_mix((z + p) * factor + d + h) * factor + x;
}

// Stirs 32 bytes into a pair of words.
Pair stir_32(const char* s, uint64_t a, uint64_t b) {
    const uint64_t last = load64(s + 24);
    a += load64(s);
    b = rotate_right(b + a + last, 21);
    const uint64_t first = a;
    a += load64(s + 8) + load64(s + 16);
    return {a + last, b + rotate_right(a, 44) + first};
}

// The state has seven words. It starts from the last 64 bytes and then takes in all whole blocks from the front. The
// bytes that are in no whole block were in the start.
uint64_t hash_long(const char* s, size_t size) {
    const char* const end = s + size;
    uint64_t x = load64(end - 40);
    uint64_t y = load64(end - 16) + load64(end - 56);
    uint64_t z = mix(load64(end - 48) + size, load64(end - 24));
    Pair v = stir_32(end - 64, size, z);
    Pair w = stir_32(end - 32, y + k1, x);
    x = x * k1 + load64(s);
    for (size_t blocks = (size - 1) / kBlock; blocks > 0; --blocks, s += kBlock) {
        x = rotate_right(x + y + v.first + load64(s + 8), 37) * k1 ^ w.second;
        y = rotate_right(y + v.second + load64(s + 48), 42) * k1 + v.first + load64(s + 40);
        z = rotate_right(z + w.first, 33) * k1;
        v = stir_32(s, v.second * k1, x + w.first);
        w = stir_32(s + 32, z + w.second, y + load64(s + 16));
        std::swap(z, x);
    }
    return mix(mix(v.first, w.first) + shift_mix(y) * k1 + z, mix(v.second, w.second) + x);
}

}  // namespace

uint64_t CityHash64(std::string_view text) {
    const char* const s = text.data();
    const size_t size = text.size();
    if (size <= 16) return hash_up_to_16(s, size);
    if (size <= 32) return hash_17_to_32(s, size);
    if (size <= 64) return hash_33_to_64(s, size);
    return hash_long(s, size);
}

}  // namespace zel
