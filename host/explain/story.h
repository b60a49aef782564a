// What became of one alert, or of another event that the plug-in took.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/event_ids.h"

namespace zelhost {

// How a story ends.
enum class End : uint8_t {
    waiting,
    untold,  // what was read does not tell
    traced,
    answered,  // an on-demand trace
    reported,
    repeat,
    untraced,
    hot,
    trigger_only,
    ignored,
    // Ends that lose the alert.
    no_payload,
    queue_full,
    not_taken,
    undecoded,
    filtered,
    unbuilt,
    unsent,
    given_up,
    no_function,
    // Ends that lose its trace alone.
    shed,
    tries_over,
    trace_failed,
    trace_dropped,
    trace_lost,
    chain_unsent,
    not_completed,
    // Ends of the process that lose whatever waited.
    stopped,
    process_gone,
};

// What people read of an end. Where the summary of a run counts the same, it has the same words.
struct EndWords {
    // The same end as the place of the row, so that a test can compare both.
    End end;
    const char* words;
    bool loss;  // the alert or its trace does not reach the receiver
};
std::span<const EndWords> end_words();  // one row for each end, in their order
const EndWords& words_of(End end);

// For a step or an entry whose time is not known.
constexpr int64_t kNoTime = INT64_MIN;

// Something that happened to the alert, in words for people. Steps are shown in the order of the
// lines that told them.
struct Step {
    uint64_t order = 0;       // of the line among all that were read
    int64_t at_us = kNoTime;  // microseconds since 1970
    std::string text;
};

// Where the alert is in the plug-in.
// An alert goes through the stages from left to right. It may leave for `over` from each of them.
enum class Stage : uint8_t { at_intake, in_event_queue, on_alarm_worker, before_first_try, before_next_try, over };

// One alert or other event, from its place on the bus to its end. The story book owns it.
// ProcessStories fills it, and afterwards it is only read.
struct Story {
    std::string guid;  // empty: nothing that was read names it
    EVENT_ID event = 0;
    int64_t process = 0;  // its id
    // When the bus gave it to the plug-in, in microseconds since 1970.
    int64_t taken_us = kNoTime;
    std::vector<Step> steps;
    Stage stage = Stage::at_intake;
    End end = End::waiting;
    std::string why;       // of the end, for people; may be empty
    std::string document;  // the payload, where a record has it

    // How far it has come.
    bool decoded = false;
    bool builds = false;  // its message
    bool reported = false;
    bool repeated = false;
    bool chain_sent = false;
    bool marked_shed = false;
    bool on_demand = false;  // a trace that the host asked for
    uint32_t tries = 0;      // of the trace, or of a completion before the report
    int32_t processes = 0;
    int32_t level = -1;
    std::string container;                // empty on the host
    std::vector<std::string> complaints;  // lines that may say why it ends
    std::vector<const Story*> before;     // of a wanted repeat: what the repeat filter may remember, oldest first
};

}  // namespace zelhost
