#include "decode/decode_state.h"

#include <type_traits>
#include <utility>

#include "common/never_ends.h"

ST_CONTAINER_INFO& g_stContainerInfo = zel::decode_state().container;

namespace zel {

static_assert(std::is_nothrow_default_constructible_v<DecodeState>, "it is made at load, where nothing may fail");

DecodeState& decode_state() {
    static NeverEnds<DecodeState> state;
    return *state;
}

void Scratch::note_op_time(int64_t time) {
    if (time < llEarliestOpTime || llEarliestOpTime == 0) llEarliestOpTime = time;
    if (time > llLatestOpTime) llLatestOpTime = time;
}

void Scratch::note_rule(const ST_RULE& rule) {
    if (nBestScore >= rule.nScore) return;
    // Both copies come first: when one fails, the older rule stays whole.
    std::string desc = rule.strRuleDesc;
    if (!rule.strRuleName.empty()) strBestRuleName = rule.strRuleName;
    strBestRuleDesc = std::move(desc);
    nBestScore = rule.nScore;
}

// The alert type stays: the next document sets it before anything reads it.
void Scratch::hand_over(ST_BUF_DATA& data) {
    data.llEarliestOpTime = std::exchange(llEarliestOpTime, 0);
    data.llLatestOpTime = std::exchange(llLatestOpTime, 0);
    data.strBestRuleDesc = std::exchange(strBestRuleDesc, {});
    data.strBestRuleName = std::exchange(strBestRuleName, {});
    nBestScore = 0;
}

void SpareEvents::take(std::vector<ST_RAW_EVENT>& list, size_t more) {
    const size_t needed = list.size() + more;
    for (size_t i = 0; i < count_ && list.capacity() == 0; ++i) {
        if (lists_[i].capacity() < needed) continue;
        list.swap(lists_[i]);
        // The last spare list fills the gap, so those with storage stay together at the front.
        lists_[i].swap(lists_[--count_]);
    }
    list.reserve(needed);
}

void SpareEvents::give(std::vector<ST_RAW_EVENT>& list) {
    // A very large list is freed. It would hold its memory for as long as the library lives.
    list.clear();
    if (list.capacity() > 0 && list.capacity() <= kMostEvents && count_ < kMostLists)
        list.swap(lists_[count_++]);
    else
        std::vector<ST_RAW_EVENT>().swap(list);
}

}  // namespace zel
