#include "decode/json_object.h"

#include <strings.h>

#include "decode/observer.h"

namespace zel {

JsonObject::JsonObject(const cJSON* node) : node_(node) {
    if (node == nullptr) return;
    for (const cJSON* item = node->child; item != nullptr; item = item->next) {
        if (item->string == nullptr) continue;  // an element of an array
        // cJSON searches all members when the key is in none of those that are indexed.
        if (count_ == kIndexed) {
            all_indexed_ = false;
            return;
        }
        const uint32_t hash = Key::hash_of(item->string);
        size_t slot = first_slot(hash);
        while (slots_[slot] != 0) slot = next_slot(slot);
        members_[count_] = {item, hash};
        slots_[slot] = ++count_;
    }
}

const cJSON* JsonObject::find(const Key& key) const {
    const cJSON* const value = search(key);
    observe::looked_up(node_, value);
    return value;
}

const cJSON* JsonObject::search(const Key& key) const {
    // Equal names have equal hashes, and the earlier member has the earlier slot: the first match is the first member.
    for (size_t slot = first_slot(key.hash); slots_[slot] != 0; slot = next_slot(slot)) {
        const Member& member = members_[slots_[slot] - 1U];
        if (member.hash == key.hash && strcasecmp(member.value->string, key.name) == 0) return member.value;
    }
    return all_indexed_ ? nullptr : cJSON_GetObjectItem(node_, key.name);
}

}  // namespace zel
