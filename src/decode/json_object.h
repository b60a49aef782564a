// Members of a parsed JSON object, found by name in one step.
#pragma once

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zel {

// A member's name with its hash, which ignores case. Built at compile time in the key tables.
struct Key {
    constexpr Key(const char* text) : name(text), hash(hash_of(text)) {}  // implicit: a literal is a key

    // Equal for names that differ in the case of ASCII letters only. Names of one kind of object often begin alike, so
    // their ends and lengths tell them apart; a look at every character would cost more than the comparisons it saves.
    static constexpr uint32_t hash_of(std::string_view text) {
        uint32_t end = 0;
        for (size_t i = text.size() - std::min<size_t>(text.size(), 4); i < text.size(); ++i)
            end = end << 8 | static_cast<unsigned char>(text[i]) | 0x20U;
        return (end ^ static_cast<uint32_t>(text.size()) << 13) * 0x9E3779B1U;
    }

    const char* name;
    uint32_t hash;
};

// A view of a node with an index of its members. It borrows the node, which must outlive it. A node that is no object
// has no members; neither has null, which functions that must not be given it assert on.
//
// An event has some thirty keys to be read from as many members: cJSON_GetObjectItem would walk half of them for each
// key.
class JsonObject {
public:
    JsonObject(const cJSON* node);  // implicit: a node can stand where its members are asked for
    JsonObject(const JsonObject&) = delete;
    JsonObject& operator=(const JsonObject&) = delete;

    explicit operator bool() const { return node_ != nullptr; }

    const cJSON* node() const { return node_; }

    // What cJSON_GetObjectItem gives: the first member in document order whose name is the key's but for case, or null.
    const cJSON* find(const Key& key) const;

private:
    static constexpr size_t kIndexed = 64;  // members behind these are searched by cJSON
    static constexpr int kSlotBits = 7;     // twice as many slots as members, so that runs stay short

    struct Member {
        const cJSON* value;
        uint32_t hash;
    };

    const cJSON* search(const Key& key) const;
    static size_t first_slot(uint32_t hash) { return hash >> (32 - kSlotBits); }
    static size_t next_slot(size_t slot) { return (slot + 1) % (size_t{1} << kSlotBits); }

    const cJSON* node_;
    uint8_t count_ = 0;
    bool all_indexed_ = true;
    // Open addressing: a slot holds a member's number from 1. Of equal names the earlier member comes first in its run.
    std::array<uint8_t, size_t{1} << kSlotBits> slots_{};
    std::array<Member, kIndexed> members_;  // the first count_ are set
};

}  // namespace zel
