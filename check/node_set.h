// A set of nodes of a document, which is emptied for each document. Open addressing on the address; emptying costs
// nothing, because a slot counts only with the number of the present round.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zel::check {

class NodeSet {
public:
    void clear();
    // False when the node is in the set already.
    bool insert(const cJSON* node);
    bool contains(const cJSON* node) const { return slots_[find(node)].round == round_; }

private:
    // Counts as free when `round` is not the number of the present round.
    struct Slot {
        const cJSON* node;
        uint64_t round;
    };

    size_t find(const cJSON* node) const;  // its slot, or the free one where it belongs
    void grow();

    static constexpr size_t kFirstSize = 1024;  // a power of two, as every size

    std::vector<Slot> slots_ = std::vector<Slot>(kFirstSize, Slot{nullptr, 0});
    size_t count_ = 0;  // nodes of the present round; at most half of the slots
    uint64_t round_ = 1;
};

}  // namespace zel::check
