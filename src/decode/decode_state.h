// What decoding keeps from one document to the next. Alarm worker only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

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

struct DecodeState {
    Scratch scratch;
    ST_CONTAINER_INFO container;  // also known as g_stContainerInfo
    std::unique_ptr<ProcessTreeSelector> selector;
};

// The one state, which owns the adapter library. It never ends by itself. The owner of the alarm worker destroys it
// when the library ends, after the worker.
DecodeState& decode_state();

}  // namespace zel
