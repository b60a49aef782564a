// What decoding keeps from one document to the next. Alarm worker only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "decode/processtreeselector.h"
#include "decode/records.h"

namespace zel {

// What is gathered across one document. A document that passes as a whole takes all but nCurAlertType with it. What a
// refused document leaves goes to the next one that passes.
struct Scratch {
    int32_t nCurAlertType = 0;
    int64_t llEarliestOpTime = 0;
    int64_t llLatestOpTime = 0;
    int32_t nBestScore = 0;
    std::string strBestRuleDesc;
    std::string strBestRuleName;

    // A time of 0 becomes the earliest one. The next event then takes its place.
    void note_op_time(int64_t time);
    // The first of equal scores wins, and a score must be above 0. A better rule without a name leaves the older name.
    void note_rule(const ST_RULE& rule);
    void hand_over(ST_BUF_DATA& data);
};

// Storage of event lists, kept from document to document.
class SpareEvents {
public:
    // Makes room for so many events more. A list without storage gets one of the spare ones, if one is large enough.
    void take(std::vector<ST_RAW_EVENT>& list, size_t more);
    // Ends the events of the list and leaves it without storage, which is kept or freed.
    void give(std::vector<ST_RAW_EVENT>& list);

private:
    static constexpr size_t kMostLists = 16;
    static constexpr size_t kMostEvents = 256;  // of one list; some 100 KiB

    std::array<std::vector<ST_RAW_EVENT>, kMostLists> lists_;  // the first count_ have storage
    size_t count_ = 0;
};

struct DecodeState {
    Scratch scratch;
    SpareEvents spare_events;
    ST_CONTAINER_INFO container;  // also known as g_stContainerInfo
    std::unique_ptr<ProcessTreeSelector> selector;
};

// The one state, which owns the adapter library. It never ends by itself. The owner of the alarm worker destroys it
// when the library ends, after the worker.
DecodeState& decode_state();

}  // namespace zel
