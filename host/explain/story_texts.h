// The texts of the plug-in's log, and what each of them says about one alert.
//
// A log line names neither its thread nor, as a rule, the alert that it speaks of. Which thread writes a text follows
// from the plug-in's sources, and each thread has one event in hand at a time. A test holds this table against the
// sources: every text that the plug-in logs has a row here or stands among those that say nothing of one alert.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "host/explain/story.h"

namespace zelhost {

// The thread that writes a line.
// Only a record tells it. In a log it is `unknown`.
enum class Worker : uint8_t { unknown, host, bus, alarm, trace };
// Which threads may write a text.
// It follows from the plug-in's sources and holds for every line with that text.
enum class Writer : uint8_t { bus, alarm, trace, either_worker, any };

// What a text says.
enum class Says : uint8_t {
    // Of the process.
    started,
    stopping,
    settings,
    configured,
    limit,
    trunk_level,
    reset_begins,
    reset_ends,
    file_trace,
    // On the bus thread, of the event that it delivers.
    taken,
    complaint_at_intake,
    dns_hit,
    named,
    queued,
    hot_hit,
    hot,
    queue_full,
    lost_at_intake,
    // On the alarm worker, of the event that it has in hand.
    begun,
    begun_named,
    ignored,
    nothing,  // it belongs to that event and adds nothing to its story
    builds,   // its message begins to be built
    complaint,
    bad_text,
    container,
    memory_check,
    braked,
    repeated,
    goes_to_trace,
    goes_nowhere,
    trace_lost,
    lost,
    entered_cache,
    forgets_repeats,
    sheds_from_cache,
    ages_cache,
    batch_of_repeats,
    // On either worker.
    sends,
    sent,
    not_made,
    unsent,
    unsent_named,
    tries_over,
    not_completed,
    // Of a trace, named by its GUID or the one that the trace worker has in hand.
    queued_for_trace,
    left_eliminator,
    retry,
    success,
    failed,
    dropped,
    cost,
    trace_note,
    trace_given_up,
    call_given_up,
    predicts,
    predicted,
    shed,
};

// One row of the table. The text and all other members are constants.
struct StoryText {
    std::string_view format;  // as it stands in the sources
    Writer writer;
    Says says;
    int guid = -1;                // which of the values is a GUID
    End end = End::waiting;       // for lost, lost_at_intake: the end
    std::string_view first = {};  // if not empty, what the first value must be
    std::string_view file = {};   // if not empty, what the name of the source file that logs it must hold
};

// In the order in which they are tried. Valid for the life of the process.
std::span<const StoryText> story_texts();
// Formats of lines that say nothing of one alert.
std::span<const std::string_view> silent_texts();

// What a line says.
// The values are views into the line and end with it.
struct Reading {
    const StoryText* row = nullptr;        // null for a text that is silent or unknown
    bool known = false;                    // a text of the plug-in
    std::vector<std::string_view> values;  // of the row's format
};
// `file` is the name of the source file, or empty when that is not known.
Reading read_text(std::string_view text, std::string_view file);

}  // namespace zelhost
