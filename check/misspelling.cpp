#include "check/misspelling.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

namespace zel::check {
namespace {

// A longer name is not looked at: no key is as long.
constexpr size_t kLongest = 64;

bool same_letter(char a, char b) {
    return tolower(static_cast<unsigned char>(a)) == tolower(static_cast<unsigned char>(b));
}

// How many letters must be added, removed or replaced, whatever their case. The usual table of distances needs only its
// last row, so one row is kept and overwritten from left to right.
size_t distance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t i = 0; i <= b.size(); ++i) row[i] = i;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = diagonal + (same_letter(a[i - 1], b[j - 1]) ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

}  // namespace

const char* nearest_key(const cJSON* object, std::string_view key, const NodeSet& read) {
    if (!cJSON_IsObject(object)) return nullptr;
    const char* nearest = nullptr;
    size_t least = key.size() / 4 + 2;  // as many differences or more make another word
    for (const cJSON* child = object->child; child != nullptr; child = child->next) {
        if (read.contains(child) || strnlen(child->string, kLongest + 1) > kLongest) continue;
        const size_t differs = distance(key, child->string);
        if (differs >= least) continue;
        least = differs;
        nearest = child->string;
    }
    return nearest;
}

}  // namespace zel::check
