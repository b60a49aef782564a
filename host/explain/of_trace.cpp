// Stories in the trace stage: tries, answers of the trace module, and what is shed.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/explain/process_stories.h"

namespace zelhost {

// Takes the lines of the trace stage. Most name their alert; the last ones are of the trace that
// has its answer.
bool ProcessStories::of_trace(const Told& told) {
    switch (told.row().says) {
        case Says::retry:
        case Says::success:
        case Says::failed:
        case Says::dropped: return answer(told);
        case Says::predicts:
            // Milliseconds for one process of an alert: of a trunk trace and of a full one.
            trunk_ms_ = told.number(0);
            full_ms_ = told.number(1);
            return true;
        case Says::predicted: prediction_ms_ = told.number(0); return true;
        // The text is kept until the answer comes that it explains.
        case Says::call_given_up: call_complaint_ = told.value(1); return true;
        case Says::queued_for_trace: {
            Story* const story = in_hand(told);
            if (story == nullptr) return false;
            story->event = static_cast<EVENT_ID>(told.number(0));
            story->processes = static_cast<int32_t>(told.number(1));
            story->level = static_cast<int32_t>(told.number(2));
            // Only what was reported waits for a trace, even if the line of the report is missing.
            story->reported = true;
            step(*story, told,
                 fmt::format("waits for its trace, with {} processes and risk level {}", story->processes,
                             story->level));
            // An alert that was put off goes back to the queue with the same line. Its tries go on
            // then.
            if (story->stage != Stage::before_next_try) await_first_try(*story);
            return true;
        }
        case Says::shed:
        case Says::tries_over:
        case Says::left_eliminator: {
            Story* const story = find_or_open(told.guid());
            if (story == nullptr) return false;
            if (told.row().says == Says::shed) {
                // The alert stays in its queue until its turn comes, and is dropped then.
                story->marked_shed = true;
                story->why =
                    fmt::format("all waiting traces together were predicted to take {} ms, and the limit is {} ms",
                                prediction_ms_, limit_ms_);
                step(*story, told, "shed: " + shed_text(*story));
            } else if (told.row().says == Says::tries_over) {
                ++story->tries;
                step(*story, told,
                     fmt::format("not ready at try {} of {}, the last one", told.value(0), told.value(0)));
                // The end is told by the answer that follows.
                story->end = End::tries_over;
            }
            return true;
        }
        default: break;
    }
    // The line names no alert. It is of the one that the worker has just worked on.
    Story* const story = told.entry.worker == Worker::alarm || trace_hand_ == nullptr ? hand_ : trace_hand_;
    if (story == nullptr) return false;
    switch (told.row().says) {
        case Says::cost:
            // The cost is added to the step that it belongs to.
            if (!story->steps.empty()) story->steps.back().text += fmt::format(", in {} ms", told.value(3));
            return true;
        case Says::not_completed: {
            // The alarm worker completes a KOV alert first. Later tries are the trace worker's.
            Story& kov =
                hand_ != nullptr && hand_->event == event_id::kov && hand_->stage != Stage::over ? *hand_ : *story;
            finish(kov, End::not_completed);
            return true;
        }
        // The chain may have been on its way; else the line is of a trace that it does not name.
        case Says::trace_given_up:
            if (!trace_may_send_) return false;
            finish(*story, End::chain_unsent, std::string(told.value(1)));
            return true;
        default: return true;
    }
}

// How much a process of the alert adds to the prediction depends on its level.
std::string ProcessStories::shed_text(const Story& story) const {
    // The level is not known from all lines.
    if (story.level < 0) return story.why;
    // A level up to this limit gets a trunk trace.
    const bool trunk = story.level <= trunk_level_;
    return fmt::format("{}; its own would have taken {} ms, {} processes at {} ms ({} trace for risk level {})",
                       story.why, story.processes * (trunk ? trunk_ms_ : full_ms_), story.processes,
                       trunk ? trunk_ms_ : full_ms_, trunk ? "trunk" : "full", story.level);
}

void ProcessStories::await_first_try(Story& story) {
    story.stage = Stage::before_first_try;
    story.tries = 0;
}

// The try that comes next.
std::string ProcessStories::try_text(const Story& story) const {
    // How many tries there are is a setting, which the log tells at the start.
    if (!most_tries_) return fmt::format("try {}", story.tries + 1);
    return fmt::format("try {} of {}", story.tries + 1, *most_tries_);
}

// The first answer of a KOV alert comes on the alarm worker, and no line has named the alert before it.
Story* ProcessStories::of_answer(const Told& told) {
    Story* const known = find(told.guid());
    const bool kov_in_hand =
        hand_ != nullptr && hand_->event == event_id::kov && hand_->stage == Stage::on_alarm_worker;
    // The line is the first to name the alert in hand.
    if (known == nullptr && kov_in_hand && hand_->guid.empty() && told.entry.worker != Worker::trace)
        return in_hand(told);
    // A GUID that was cut may belong to any alert that begins so.
    if (known != nullptr || is_cut(told.guid())) return known;
    Story& story = *find_or_open(told.guid());
    // An alert that nothing was told of before may be one that the host asked for by itself.
    if (file_traces_ > 0) {
        --file_traces_;
        story.on_demand = true;
    }
    return &story;
}

bool ProcessStories::answer(const Told& told) {
    Story* const found = of_answer(told);
    if (found == nullptr) return false;
    Story& story = *found;
    // A KOV alert that the alarm worker has in hand is sent by that worker.
    if (&story != hand_ || story.event != event_id::kov || story.stage != Stage::on_alarm_worker) {
        trace_hand_ = &story;
        trace_may_send_ = told.row().says != Says::retry && !story.marked_shed && !story.on_demand;
        // Only a KOV alert is traced before its report.
        if (story.event != event_id::kov) story.reported = !story.on_demand;
    }
    switch (told.row().says) {
        case Says::retry:
            step(story, told, fmt::format("not ready at {}; the next one is 15 seconds later", try_text(story)));
            // The next line of the same alert will count from here.
            ++story.tries;
            story.stage = Stage::before_next_try;
            break;
        case Says::success: answer_success(story, told); break;
        case Says::failed: answer_failed(story, told); break;
        default: answer_dropped(story, told); break;
    }
    // A complaint explains one answer alone.
    call_complaint_.clear();
    return true;
}

void ProcessStories::answer_success(Story& story, const Told& told) {
    // A completion is no trace. The alert will be traced after its report.
    if (story.event == event_id::kov && !story.reported) {
        step(story, told, fmt::format("completed by the trace module at {}", try_text(story)));
        return;
    }
    step(story, told, fmt::format("traced at {}", try_text(story)));
    ++story.tries;
    finish(story, story.on_demand ? End::answered : End::traced);
}

void ProcessStories::answer_failed(Story& story, const Told& told) {
    // The line that all tries are over came right before this one.
    const bool over = story.end == End::tries_over;
    if (!over) {
        step(story, told, fmt::format("the trace failed at {}", try_text(story)));
        ++story.tries;
    }
    // A KOV alert that failed to be completed is reported all the same.
    if (story.event == event_id::kov && !story.reported) return;
    std::string why = over                      ? fmt::format("not ready at any of {} tries", story.tries)
                      : call_complaint_.empty() ? "the trace module failed"
                                                : "the trace module: " + call_complaint_;
    finish(story, over ? End::tries_over : End::trace_failed, std::move(why));
}

void ProcessStories::answer_dropped(Story& story, const Told& told) {
    // Shedding was decided earlier; this is the turn at which the alert leaves its queue.
    if (story.marked_shed) {
        step(story, told, "its turn has come: it is dropped without a trace");
        finish(story, End::shed, story.why);
        return;
    }
    step(story, told, fmt::format("dropped by the trace module at {}", try_text(story)));
    ++story.tries;
    if (story.event == event_id::kov && !story.reported) return;
    finish(story, End::trace_dropped);
}

}  // namespace zelhost
