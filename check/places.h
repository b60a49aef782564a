// Where the values of a document stand in its text. cJSON keeps no places, so text and tree are walked side by side,
// and only when somebody asks.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zel::check {

struct Place {
    std::string path;   // from the root; "" is the root itself
    size_t offset = 0;  // of the value's first byte in the text
    size_t size = 1;    // of a string, number or word the whole literal; of an object or array its first bracket
};

using Places = std::unordered_map<const cJSON*, Place>;

// The places of the nodes, which belong to the tree that cJSON made of the text. A node of another tree has none.
Places find_places(std::string_view text, const cJSON* tree, const std::vector<const cJSON*>& nodes);

// The byte of a string's literal that gives the byte `index` of the string's value. The literal begins with its quote.
size_t byte_in_literal(std::string_view literal, size_t index);
// How many bytes the character or escape at that place of the literal takes: 1 for one byte of a longer character.
size_t unit_size(std::string_view literal, size_t at);
// The first escape of the literal that stands for a NUL, which ends the text for the agent; the literal's size without.
size_t end_of_text(std::string_view literal);

}  // namespace zel::check
