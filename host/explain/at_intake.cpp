// Stories on the bus thread: from the delivery of an event to its place in the event queue.
#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "host/explain/process_stories.h"
#include "host/lib/failure.h"
#include "host/lib/json_text.h"

namespace zelhost {
namespace {

// As much of a document's GUID as the plug-in keeps.
// The GUID in the log is cut to this length. One that is longer in the document has to be cut in
// the same way before the two can be compared.
constexpr size_t kGuidSize = 37;

// Only these two kinds of events carry a document in which a GUID stands.
bool has_document(EVENT_ID event) { return event == event_id::ioa_alert || event == event_id::memory_trojan; }

// Empty for a text that is no document.
std::string guid_in(const std::string& document) {
    try {
        const JsonText json(document);
        const std::string* const guid = json.text("Guid");
        return guid == nullptr ? std::string() : guid->substr(0, kGuidSize);
    } catch (const Failure&) {
        return {};
    }
}

}  // namespace

// True when the line belongs to a story. Only the bus thread writes these lines, so they speak of
// the event at the door: the one that it has taken and not yet queued or ended.
bool ProcessStories::at_intake(const Told& told) {
    if (told.row().says == Says::taken) {
        take(told);
        return true;
    }
    if (told.row().says == Says::hot_hit) {
        // A repeated hit ends as an event of its own, and at the same time is news for the hit that
        // was reported first.
        Story* const first = find(told.guid());
        if (first != nullptr)
            step(*first, told,
                 fmt::format("the same hit came again; the hot cache counts it and lets it go: {} so far",
                             told.value(4)));
        // The reason is told before the end: the line that ends the event follows this one.
        if (at_door_ != nullptr) at_door_->why = fmt::format("it repeats the hit {}", told.guid());
        return first != nullptr || at_door_ != nullptr;
    }
    if (at_door_ == nullptr) return false;
    Story& story = *at_door_;
    switch (told.row().says) {
        case Says::dns_hit:
            step(story, told,
                 fmt::format("DNS hit: {} was asked for by {}, pid {}", told.value(4), told.value(2), told.value(0)));
            return true;
        case Says::named: set_guid(story, told.guid()); return true;
        case Says::complaint_at_intake: story.complaints.push_back(told.entry.text); return true;
        case Says::queued:
            step(story, told, fmt::format("put into the event queue, which holds {} then", told.value(0)));
            // From here on the alarm worker is the one to tell of the event.
            story.stage = Stage::in_event_queue;
            in_queue_.push_back(&story);
            break;
        case Says::hot: finish(story, End::hot, story.why); break;
        case Says::queue_full:
            finish(story, End::queue_full,
                   fmt::format("event queue {}, trace queue {}, delay queue {}{}", told.value(0), told.value(1),
                               told.value(2), queue_limit_ ? fmt::format("; the limit is {}", *queue_limit_) : ""));
            break;
        case Says::lost_at_intake: lose(story, told); break;
        // The other texts of the bus thread tell nothing of the alert.
        default: return true;
    }
    // All that is left are ends and the place in the queue: the event is not at the door any more.
    at_door_ = nullptr;
    return true;
}

// An event whose fate no line tells, as in a log without the lines of level debug, stays untold.
void ProcessStories::take(const Told& told) {
    if (at_door_ != nullptr) at_door_->end = End::untold;
    Story& story = open(static_cast<EVENT_ID>(told.number(0)));
    story.taken_us = told.entry.at_us;
    // The number in the line is the id of the event.
    step(story, told, "taken from the bus");
    at_door_ = &story;
    join_document(story);
}

// Events are delivered in the order in which they were published. One that nobody takes leaves no line.
void ProcessStories::join_document(Story& story) {
    delivery_is_open_ = false;
    const auto published = std::ranges::find(published_, story.event, &Published::event);
    if (published == published_.end()) return;
    if (has_document(story.event)) {
        if (const std::string guid = guid_in(published->data); !guid.empty()) set_guid(story, guid);
        // Documents are large. They are only kept when somebody has asked for an alert.
        if (wanted_) story.document = std::move(published->data);
    }
    // Events before this one were delivered and not taken. They are forgotten together with it.
    published_.erase(published_.begin(), std::next(published));
}

// Events leave the queue in the order in which they came. One of another kind before this one means that lines are
// missing.
Story* ProcessStories::from_queue(EVENT_ID event) {
    const auto found = std::ranges::find(in_queue_, event, &Story::event);
    if (found == in_queue_.end()) return nullptr;
    Story* const story = *found;
    // These were taken from the queue as well, but the lines that say so are not there.
    std::for_each(in_queue_.begin(), found, [](Story* skipped) { skipped->end = End::untold; });
    in_queue_.erase(in_queue_.begin(), std::next(found));
    return story;
}

}  // namespace zelhost
