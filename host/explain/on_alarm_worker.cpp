// Stories on the alarm worker: from the event queue to the report and on to the trace.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/explain/process_stories.h"
#include "platform/zel_support.h"

namespace zelhost {
namespace {

// So many complaints are told of a document that failed.
// A document that failed may bring a complaint for each of its keys.
constexpr size_t kMostComplaints = 4;

// The line of these events has a word in place of the number.
constexpr std::pair<std::string_view, EVENT_ID> kNamedEvents[] = {
    {"ioc", event_id::ioc}, {"kov", event_id::kov}, {"trc_ex", event_id::trc_ex}};

// The complaints in the order in which they came, with a mark when some are left out.
std::string joined(const std::vector<std::string>& complaints) {
    const size_t told = std::min(complaints.size(), kMostComplaints);
    return fmt::format("{}{}", fmt::join(complaints.begin(), complaints.begin() + static_cast<ptrdiff_t>(told), " / "),
                       told < complaints.size() ? " / ..." : "");
}

}  // namespace

// True when the line belongs to a story. The first switch has the lines that begin an event or are
// of no event; the second has those of the event in hand.
bool ProcessStories::on_alarm_worker(const Told& told) {
    switch (told.row().says) {
        case Says::begun: return begin(told, static_cast<EVENT_ID>(told.number(0)));
        case Says::begun_named: {
            const auto named =
                std::ranges::find(kNamedEvents, told.value(0), &std::pair<std::string_view, EVENT_ID>::first);
            return named != std::end(kNamedEvents) && begin(told, named->second);
        }
        case Says::ignored: {
            begin(told, static_cast<EVENT_ID>(told.number(0)));
            finish(*hand_, End::ignored);
            return true;
        }
        // The filter forgets all alerts at once, so an alert after this line repeats none before
        // it.
        case Says::forgets_repeats: forget_repeats(); return true;
        // A batch goes out only when hits have left the cache.
        case Says::sheds_from_cache: batch_may_come_ = told.number(1) > 0; return true;
        case Says::ages_cache: batch_may_come_ = told.number(0) > 0; return true;
        case Says::batch_of_repeats: {
            Story* const first = find(told.guid());
            if (first == nullptr) return false;
            step(*first, told, fmt::format("its {} repeats go out in a batch, event 770", told.value(1)));
            return true;
        }
        default: break;
    }
    Story* const found = told.row().writer == Writer::either_worker ? of_kov(told) : in_hand(told);
    if (found == nullptr) return false;
    Story& story = *found;
    // The order of the enumeration is that of the road. These lines come before the report.
    const bool before_report = told.row().says < Says::goes_to_trace || told.row().says == Says::entered_cache;
    if (before_report && &story == hand_) settle_others();
    switch (told.row().says) {
        // The message of the event is being built. Only such an event can send one.
        case Says::builds: story.builds = true; return true;
        case Says::bad_text:
            story.complaints.push_back(
                fmt::format("the text \"{}\" holds bytes that no message may carry", told.value(0)));
            return true;
        // What may be missing is told at other levels; it is no reason for anything.
        case Says::complaint:
            if (told.entry.level == ZEL_LOG_ERROR) story.complaints.push_back(told.entry.text);
            return true;
        case Says::container:
            if (told.value(0) != "host") story.container = told.value(0);
            return true;
        case Says::memory_check:
            decode(story, told);
            step(story, told,
                 told.value(1).empty() ? fmt::format("a memory check of pid {} was not sent", told.value(0))
                                       : fmt::format("a memory check of {}, pid {}, is asked for, event 2305",
                                                     told.value(1), told.value(0)));
            return true;
        // The brake skips the scan of the scenario. It does not end the alert.
        case Says::braked:
            decode(story, told);
            step(story, told, "no scenario scan: each of its rules has matched too often within an hour");
            return true;
        case Says::repeated:
            decode(story, told);
            enter_filter(story);
            // Two texts say the same. The step is told once.
            if (!std::exchange(story.repeated, true))
                step(story, told, "a repeat: it is reported, marked, and not traced");
            return true;
        case Says::goes_to_trace:
            confirm_report(story, told);
            // The settings were not told when the log begins later than the start. Then a trace is
            // expected.
            if (most_tries_ == 0)
                finish(story, End::reported, "tracing is off: trc_times is 0");
            else
                await_first_try(story);
            return true;
        case Says::goes_nowhere:
            confirm_report(story, told);
            finish(story, story.repeated ? End::repeat : End::untraced,
                   story.repeated || story.container.empty() ? "" : "container " + story.container);
            return true;
        case Says::trace_lost: finish(story, End::trace_lost, told.entry.text); return true;
        // The reason is made from the complaints that came before.
        case Says::lost: lose(story, told); return true;
        default: return true;
    }
}

// The event that a line speaks of: the one in hand, unless the line names another.
Story* ProcessStories::in_hand(const Told& told) {
    const std::string_view guid = told.guid();
    if (guid.empty() || (hand_ != nullptr && hand_->guid == guid)) return hand_;
    if (is_cut(guid)) return nullptr;
    // An event that is over, or that has a GUID of its own, cannot be the one that the line names.
    const bool may_be_another = hand_ == nullptr || hand_->stage == Stage::over ||
                                (hand_->stage != Stage::on_alarm_worker && !hand_->guid.empty());
    if (may_be_another) return find_or_open(guid);
    if (!hand_->guid.empty()) hand_->document.clear();  // the record's events and the lines are out of step
    // The event in hand had no GUID yet. From now on it can be found by it.
    set_guid(*hand_, guid);
    return hand_;
}

// A line that either worker may write of a KOV alert, unless it names another.
Story* ProcessStories::of_kov(const Told& told) {
    if (!told.guid().empty()) return find(told.guid());
    const auto is_kov = [](const Story* story) { return story != nullptr && story->event == event_id::kov; };
    if (told.entry.worker != Worker::trace && is_kov(hand_) && hand_->stage == Stage::on_alarm_worker) return hand_;
    return told.row().says == Says::trace_lost && is_kov(trace_hand_) ? trace_hand_ : nullptr;
}

bool ProcessStories::begin(const Told& told, EVENT_ID event) {
    // A worker that begins an event has ended the one before.
    leave_hand();
    hand_ = from_queue(event);
    const bool known = hand_ != nullptr;
    if (!known) hand_ = &open(event);
    step(*hand_, told, known ? "taken by the alarm worker" : "taken by the alarm worker; what was before is not told");
    hand_->stage = Stage::on_alarm_worker;
    // A batch goes out before the next event is begun.
    batch_may_come_ = false;
    return true;
}

// The worker has gone on to something else. Of most kinds of events no line says that they have ended well.
void ProcessStories::leave_hand() {
    if (hand_ == nullptr) return;
    if (hand_->stage == Stage::on_alarm_worker) {
        // By now every message that this event could send has its end.
        settle_hand(true);
        if (hand_->stage == Stage::on_alarm_worker) hand_->end = End::untold;
    }
    hand_ = nullptr;
}

// No line says that a document was decoded; the first that is written after it does.
void ProcessStories::decode(Story& story, const Told& told) {
    const bool has_document = story.event == event_id::ioa_alert || story.event == event_id::memory_trojan;
    if (!has_document || std::exchange(story.decoded, true)) return;
    step(story, told,
         story.container.empty() ? "decoded" : fmt::format("decoded: an alert from container {}", story.container));
}

void ProcessStories::enter_filter(Story& story) {
    if (story.event != event_id::ioa_alert && story.event != event_id::memory_trojan) return;
    // An alert is in the list once, although several lines may say that it has come so far.
    if (!in_filter_.empty() && in_filter_.back() == &story) return;
    if (wanted_ && wanted_(story.guid)) {
        // The wanted alert may repeat any of these. So their documents must stay.
        story.before.assign(in_filter_.begin(), in_filter_.end());
        filter_is_kept_ = true;
    }
    in_filter_.push_back(&story);
}

// Documents are large. Those that no wanted story may repeat are not needed any more.
void ProcessStories::forget_repeats() {
    if (!std::exchange(filter_is_kept_, false))
        // Swapping with an empty text gives the memory back.
        for (Story* const story : in_filter_) std::string().swap(story->document);
    in_filter_.clear();
}

void ProcessStories::lose(Story& story, const Told& told) {
    std::string why = joined(story.complaints);
    switch (told.row().end) {
        case End::filtered:
            // The limit is told as a number where the settings are known.
            why = "all its rules are XDR-IOA- rules, and many traces wait";
            if (trace_percent_ && queue_limit_)
                why += fmt::format(": {} or more, trace_val {} % of queue_max {}",
                                   *trace_percent_ * *queue_limit_ / 100, *trace_percent_, *queue_limit_);
            decode(story, told);
            break;
        case End::trigger_only:
            why = "each of its rules has the status Trigger";
            decode(story, told);
            break;
        case End::unbuilt:
            decode(story, told);
            enter_filter(story);
            break;
        case End::given_up: why = told.value(1); break;
        default: break;
    }
    finish(story, told.row().end, std::move(why));
}

}  // namespace zelhost
