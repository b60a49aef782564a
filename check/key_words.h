// What each key of the alert document means, in words for people.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace zel::check {

// The words for one key, or for an object as a whole. The rows are constant.
struct KeyWords {
    std::string_view object;  // "object" for what events acted upon, "object 34" for that of one event type
    std::string_view key;     // empty: the words are about the object itself
    const char* words;        // one sentence
};

// All rows, for a test that none is left over.
std::span<const KeyWords> key_words();

// The row of a key, or null when it has none. `event_type` is 0 unless the key belongs to what an event acted upon; the
// words of its own type come before those of all types. An empty key asks for the object.
const KeyWords* find_key_words(std::string_view object, uint32_t event_type, std::string_view key);

}  // namespace zel::check
