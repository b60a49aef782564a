#include "host/explain/process_stories.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <utility>

#include "host/lib/failure.h"
#include "host/lib/json_text.h"

namespace zelhost {
namespace {

// The new limit of the queues in the text of a live configuration. What cannot be read there the plug-in refuses, too.
// The number is read up to the first character that is no digit.
std::optional<int64_t> queue_size_in(std::string_view configuration) {
    try {
        const JsonText json(configuration);
        const std::string* const text = json.text("queue_size");
        if (text == nullptr) return std::nullopt;
        return static_cast<uint32_t>(strtol(text->c_str(), nullptr, 10));
    } catch (const Failure&) {
        return std::nullopt;
    }
}

}  // namespace

int64_t Told::number(size_t i) const {
    int64_t number = 0;
    std::from_chars(value(i).data(), value(i).data() + value(i).size(), number);
    return number;
}

// --- stories ---

// The story lies in a deque that never moves its elements. So the pointers stay good.
Story& ProcessStories::open(EVENT_ID event) {
    Story& story = stories_.emplace_back();
    story.process = process_;
    story.event = event;
    own_.push_back(&story);
    return story;
}

// Of the stories of one GUID those that are over need not be found again, but for the last one.
void ProcessStories::set_guid(Story& story, std::string_view guid) {
    if (story.guid == guid) return;
    // A story that had another GUID is not found by that one any more.
    if (const auto known = by_guid_.find(story.guid); known != by_guid_.end()) std::erase(known->second, &story);
    story.guid = guid;
    std::vector<Story*>& same = by_guid_[story.guid];
    std::erase_if(same, [](const Story* other) { return other->stage == Stage::over; });
    same.push_back(&story);
}

// Of several stories the one whose trace has waited longest, else the last one.
Story* ProcessStories::find(std::string_view guid) {
    const auto known = by_guid_.find(guid);
    if (known == by_guid_.end() || known->second.empty()) return nullptr;
    const auto waits = [](const Story* story) {
        return story->stage == Stage::before_first_try || story->stage == Stage::before_next_try;
    };
    const auto found = std::ranges::find_if(known->second, waits);
    return found == known->second.end() ? known->second.back() : *found;
}

// A line that was cut short may end in the middle of a GUID.
// The GUIDs are in order, so one that begins in the same way is the next one.
bool ProcessStories::is_cut(std::string_view guid) const {
    const auto next = by_guid_.lower_bound(guid);
    return guid.empty() || (next != by_guid_.end() && next->first != guid && next->first.starts_with(guid));
}

// Null when the GUID was cut and fits several alerts.
Story* ProcessStories::find_or_open(std::string_view guid) {
    if (Story* const story = find(guid)) return story;
    if (is_cut(guid)) return nullptr;
    Story& story = open(0);
    set_guid(story, guid);
    return &story;
}

// `told` gives the step its place and its time.
void ProcessStories::step(Story& story, const Told& told, std::string text) {
    story.steps.push_back({told.order, told.entry.at_us, std::move(text)});
}

// The last end counts: a line may correct what an earlier one has said.
void ProcessStories::finish(Story& story, End end, std::string why) {
    story.stage = Stage::over;
    story.end = end;
    story.why = std::move(why);
}

// --- lines ---

// The enumeration is in the order of the road, so its limits tell the part of the road.
bool ProcessStories::line(const Told& told) {
    switch (told.row().writer) {
        case Writer::bus: return at_intake(told);
        case Writer::any: return of_process(told);
        default: break;
    }
    if (told.row().says <= Says::batch_of_repeats) return on_alarm_worker(told);
    if (told.row().says <= Says::unsent_named) return of_sending(told);
    return of_trace(told);
}

bool ProcessStories::of_process(const Told& told) {
    switch (told.row().says) {
        // A start begins anew; what a stop discarded has ended with it.
        case Says::started:
            // The log of a new start stands in the same file. What the stop has discarded gets its
            // end now.
            if (stopping_) end(false);
            // The limit is set anew by the plug-in at each start, in milliseconds.
            limit_ms_ = 60000;
            break;
        case Says::stopping: stopping_ = true; break;
        // The values stand in the order of the format.
        case Says::settings:
            queue_limit_ = told.number(0);
            trace_percent_ = told.number(2);
            most_tries_ = told.number(4);
            break;
        case Says::configured:
            if (const auto size = queue_size_in(told.value(0))) queue_limit_ = size;
            break;
        case Says::limit: limit_ms_ = told.number(0); break;
        case Says::trunk_level: trunk_level_ = static_cast<int32_t>(told.number(0)); break;
        case Says::reset_begins: resetting_ = true; break;
        case Says::reset_ends: resetting_ = false; break;
        // What is left is a file trace that the host has asked for.
        default: ++file_traces_; break;
    }
    return true;
}

// What waits has ended with the process or with its stop, unless this is simply the end of what was read.
// Stories whose end is known already stay as they are.
void ProcessStories::end(bool gone) {
    leave_hand();
    // No later line has claimed these messages for the alarm worker, so they are taken for chains.
    for (const Sending& sending : undecided_) settle(sending, false);
    for (Story* const story : own_) {
        if (story->stage == Stage::over) continue;
        // It had been decided to drop the trace, so nothing was lost by the stop.
        if (story->marked_shed)
            finish(*story, End::shed, shed_text(*story) + "; its turn to be dropped had not come yet");
        else if (story->end == End::untold)
            story->stage = Stage::over;
        else if (stopping_ || gone)
            finish(*story, stopping_ ? End::stopped : End::process_gone,
                   "until then it waited " + waiting_text(*story));
        else
            story->why = waiting_text(*story);
    }
    // The stories themselves stay in the book. Only what helps to find them is forgotten.
    own_.clear();
    by_guid_.clear();
    in_queue_.clear();
    in_filter_.clear();
    sending_.clear();
    undecided_.clear();
    published_.clear();
    at_door_ = hand_ = trace_hand_ = nullptr;
    trace_may_send_ = batch_may_come_ = resetting_ = stopping_ = delivery_is_open_ = false;
    file_traces_ = 0;
}

// The text goes on from "it waits".
std::string ProcessStories::waiting_text(const Story& story) const {
    const char* const reset = resetting_ ? "; no trace is made until the reset period ends" : "";
    switch (story.stage) {
        case Stage::at_intake: return "at the intake";
        case Stage::in_event_queue: return "in the event queue, for the alarm worker";
        case Stage::on_alarm_worker: return "on the alarm worker, which had it in hand";
        case Stage::before_next_try:
            return fmt::format("for {} of its trace, 15 seconds after the one before{}", try_text(story), reset);
        default: return fmt::format("in the trace queue, for {} of its trace{}", try_text(story), reset);
    }
}

// --- what a record adds ---

void ProcessStories::published(const Entry& entry) { published_.push_back({entry.event, entry.data}); }

// Each delivery must be followed by a line that takes the event. When the next delivery comes
// first, there was none.
// An event that was delivered and not taken was let go: nobody logs that.
void ProcessStories::delivered() {
    if (delivery_is_open_ && !published_.empty()) published_.pop_front();
    delivery_is_open_ = true;
}

// What a record holds of the outgoing events names the alert, and so settles what the lines leave open.
void ProcessStories::sent(const Entry& entry, uint64_t order) {
    Story* const story = entry.guid.empty() ? nullptr : find(entry.guid);
    // An expansion or a batch names no alert.
    if (story == nullptr) return;
    const Sending sending{nullptr, nullptr, false, entry.size, entry.at_us, order};
    // An event 770 is a chain, except for an expansion, for which it is the report.
    if (entry.event != event_id::finished_trace || story->event == event_id::trc_ex) {
        if (!story->reported) report(*story, sending);
    } else if (story->reported && !story->chain_sent) {
        send_chain(*story, sending);
    }
}

}  // namespace zelhost
