// What the decoder and the builders have said about the document in hand. The functions of decode/observer.h fill it.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "check/node_set.h"

namespace zel::check {

struct TreeDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};

// Why a part of the document is refused. Noted in the order in which it happens. Whether it costs the document is
// judged when the document is explained.
struct Refusal {
    enum class Kind { missing, mistyped, unknown_number };
    Kind kind;
    const cJSON* node;  // the object that lacks a key, otherwise the value
    std::string key;    // that is missing
    int type = 0;       // that is wanted
};

// A number that is not stored as it stands in the text, or may not be.
struct Stored {
    const cJSON* value;
    bool is_signed;
    uint64_t bits;  // of the number as it was stored
};

// A text that a builder would not put into a message. It is a copy, because the builder's own text ends before the
// document is explained.
struct RefusedText {
    std::string text;
    size_t bad;  // the byte
};

// What is known of one document. All nodes in it belong to `tree`.
struct Observation {
    // Forgets the last document. Sets keep their storage.
    void clear();

    std::unique_ptr<cJSON, TreeDeleter> tree;  // null when the text is no JSON
    bool parsed = false;                       // the parser was called
    bool decoded = false;                      // as a whole
    size_t stopped_at = 0;                     // the byte at which it stopped
    std::vector<const cJSON*> objects;         // in which members were looked for, in the order of the first look
    NodeSet seen_objects;
    NodeSet read;  // values that were found
    std::vector<const cJSON*> read_in_order;
    std::vector<Refusal> refusals;
    std::vector<Stored> doubtful_numbers;
    std::vector<const cJSON*> zeros;  // numbers stored as 0
    std::vector<RefusedText> refused_texts;
};

// The one that the functions of decode/observer.h fill.
Observation& observation();

}  // namespace zel::check
