#include "check/node_set.h"

#include <utility>

namespace zel::check {

// A set that a huge document has grown goes back to its first size, so that later ones find it in the cache.
void NodeSet::clear() {
    if (slots_.size() > kFirstSize * 64) slots_ = std::vector<Slot>(kFirstSize, Slot{nullptr, 0});
    ++round_;
    count_ = 0;
}

// Addresses of nodes are alike in most bits; the multiplication spreads them over the slots. The search ends at a slot
// that is free in this round, and there always is one, because grow() keeps half of them free.
size_t NodeSet::find(const cJSON* node) const {
    const size_t mask = slots_.size() - 1;
    size_t slot = (reinterpret_cast<uintptr_t>(node) * 0x9E3779B97F4A7C15U >> 20) & mask;
    while (slots_[slot].round == round_ && slots_[slot].node != node) slot = (slot + 1) & mask;
    return slot;
}

bool NodeSet::insert(const cJSON* node) {
    const size_t slot = find(node);
    if (slots_[slot].round == round_) return false;
    slots_[slot] = {node, round_};
    if (++count_ * 2 > slots_.size()) grow();
    return true;
}

void NodeSet::grow() {
    const std::vector<Slot> former = std::exchange(slots_, std::vector<Slot>(slots_.size() * 2, Slot{nullptr, 0}));
    for (const Slot& slot : former)
        if (slot.round == round_) slots_[find(slot.node)] = slot;
}

}  // namespace zel::check
