// Messages on their way to the bus. Both workers write the same lines, which name neither the alert nor the worker.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/explain/process_stories.h"

namespace zelhost {

// Takes the lines about a message from its hand-over to the bus until its end. False when no story
// can have sent it.
bool ProcessStories::of_sending(const Told& told) {
    switch (told.row().says) {
        case Says::sends: return begin_sending(told);
        case Says::sent: return end_sending(told, true);
        case Says::not_made: return end_sending(told, false);
        default: return fail_sending(told);
    }
}

bool ProcessStories::begin_sending(const Told& told) {
    // A log does not tell the worker. Then both are possible.
    const bool alarm = told.entry.worker != Worker::trace;
    const bool trace = told.entry.worker != Worker::alarm;
    // The message may be of whatever can have sent one now.
    const Sending sending{alarm && alarm_may_send(told.entry.worker) ? hand_ : nullptr,
                          trace && trace_may_send() ? trace_hand_ : nullptr,
                          alarm && batch_may_come_,
                          static_cast<uint64_t>(told.number(0)),
                          told.entry.at_us,
                          told.order};
    // Nobody who is known can have sent the message.
    if (sending.of_alarm == nullptr && sending.of_trace == nullptr && !sending.batch) return false;
    // Only the alarm worker can have sent it, and it sends what it has decoded.
    if (sending.of_alarm != nullptr && sending.of_trace == nullptr) decode(*hand_, told);
    sending_.push_back(sending);
    return true;
}

// With two messages on their way, both end the same way, so the order of their ends says nothing.
bool ProcessStories::end_sending(const Told& told, bool made) {
    // An end that was mistaken for another one has its place in the list until its own end comes.
    const auto is_of = [&](const Sending& sending) {
        if (sending.settled) return true;
        if (told.entry.worker == Worker::alarm) return sending.of_alarm != nullptr || sending.batch;
        if (told.entry.worker == Worker::trace) return sending.of_trace != nullptr;
        return true;
    };
    const auto found = std::ranges::find_if(sending_, is_of);
    if (found == sending_.end()) {
        // A message that there is none of gets no further than this line.
        Story* const story =
            told.entry.worker == Worker::trace || !alarm_may_send(told.entry.worker) ? trace_hand_ : hand_;
        if (!made && story != nullptr) story->complaints.push_back(told.entry.text);
        return !made && story != nullptr;
    }
    Sending sending = *found;
    sending_.erase(found);
    // The story tells the moment at which the message was on the bus, not the one at which its way
    // began.
    sending.at_us = told.entry.at_us;
    sending.order = told.order;
    // A message that was not made is a reason for whatever comes next. The story it belongs to goes
    // on.
    if (!made) {
        for (Story* const story : {sending.of_alarm, sending.of_trace})
            if (story != nullptr) story->complaints.push_back(told.entry.text);
        return true;
    }
    // The end of this message has been told already.
    if (sending.settled) return true;
    // Whose message it was follows from a later line.
    if (sending.of_trace != nullptr && (sending.of_alarm != nullptr || sending.batch))
        undecided_.push_back(sending);
    else
        settle(sending, sending.of_trace == nullptr);
    return true;
}

// From here on it is known who sent the message.
void ProcessStories::settle(const Sending& sending, bool by_alarm_worker) {
    if (!by_alarm_worker) {
        // A chain is told once, even when a record and a log both tell of it.
        if (sending.of_trace == nullptr || sending.of_trace->chain_sent) return;
        if (sending.of_trace == trace_hand_) trace_may_send_ = false;
        // The first message of a KOV alert is its report, also when the trace worker has completed
        // it.
        if (sending.of_trace->event == event_id::kov && !sending.of_trace->reported)
            report(*sending.of_trace, sending);
        else
            send_chain(*sending.of_trace, sending);
        return;
    }
    // The batch of repeats belongs to no alert.
    if (sending.batch && batch_may_come_) {
        batch_may_come_ = false;
        return;
    }
    if (sending.of_alarm == nullptr || sending.of_alarm->reported) return;
    report(*sending.of_alarm, sending);
}

// The alarm worker is still before its report, so all that was sent until now is of the other.
// Taken out first: settling may add to the list.
void ProcessStories::settle_others() {
    std::vector<Sending> settled;
    settled.swap(undecided_);
    for (const Sending& sending : settled) settle(sending, sending.batch && batch_may_come_);
    // What is still on its way is left to the trace worker, too.
    for (Sending& sending : sending_)
        if (sending.of_trace != nullptr) sending.of_alarm = nullptr;
}

// The alarm worker has done with its event. A trace sends one chain, so where one of them seems to have sent two, one
// of the two was the alarm worker's, and the sizes do not tell which: the later one is taken, whose place in time is
// right. All other messages were chains.
void ProcessStories::settle_hand(bool has_sent) {
    std::vector<Sending> settled;
    settled.swap(undecided_);
    // No message of the list is the alarm worker's, unless one is found below.
    size_t mine = settled.size();
    if (has_sent && hand_ != nullptr && !hand_->reported && !settled.empty()) {
        // If no chain was sent twice, the last message is taken: the report comes right before the
        // line that ended the wait.
        mine = settled.size() - 1;
        for (size_t i = 1; i < settled.size(); ++i) {
            const auto same = std::ranges::find(settled.begin(), settled.begin() + static_cast<ptrdiff_t>(i),
                                                settled[i].of_trace, &Sending::of_trace);
            if (same == settled.begin() + static_cast<ptrdiff_t>(i)) continue;
            mine = i;
            // With two messages of one trace the sizes cannot be told apart. So neither is shown.
            same->size = 0;
        }
        settled[mine].size = 0;
    }
    // Its message has ended by now, so the end that was taken for that of a chain was this one.
    for (Sending& sending : sending_) {
        if (!has_sent || sending.of_alarm != hand_ || hand_ == nullptr) continue;
        if (sending.of_trace == nullptr) {
            // The report was sent, but the line of its end is yet to come. That line must then be
            // passed over.
            settle(sending, true);
            sending.settled = true;
        }
        sending.of_alarm = nullptr;
    }
    for (size_t i = 0; i < settled.size(); ++i) settle(settled[i], i == mine || (settled[i].batch && batch_may_come_));
}

// The line is only written behind a report that was sent.
void ProcessStories::confirm_report(Story& story, const Told& told) {
    // Its line says that the report was sent, whether or not the message was seen on its way.
    if (&story == hand_) settle_hand(true);
    if (!story.reported) report(story, {&story, nullptr, false, 0, told.entry.at_us, told.order});
}

// An event sends one message of its own. One that is on its way and can be of no other is this one.
// An event that has left the worker sends nothing, and one that was reported sends no second
// report.
bool ProcessStories::alarm_may_send(Worker writer) const {
    if (hand_ == nullptr || hand_->stage != Stage::on_alarm_worker || hand_->reported) return false;
    // The trace module builds the messages of these two. Where the writer is known, its lines may have been left out.
    if (!hand_->builds && writer != Worker::alarm && hand_->event != event_id::kov && hand_->event != event_id::trc_ex)
        return false;
    return std::ranges::none_of(sending_, [&](const Sending& sending) {
        return sending.of_alarm == hand_ && sending.of_trace == nullptr && !sending.batch;
    });
}

// Once a trace has sent its chain, or when no chain can come, the trace worker sends nothing.
bool ProcessStories::trace_may_send() const {
    return trace_may_send_ && std::ranges::none_of(sending_, [&](const Sending& sending) {
               return sending.of_trace == trace_hand_ && sending.of_alarm == nullptr && !sending.batch;
           });
}

// The lines of the report are the last ones of a finding and of an expansion.
void ProcessStories::report(Story& story, const Sending& sending) {
    story.reported = true;
    // A report lies behind the repeat filter. A later repeat may refer to it.
    enter_filter(story);
    const bool expanded = story.event == event_id::trc_ex;
    // These are the ids of the outgoing events.
    const int id = expanded ? 770 : story.event == event_id::credible_event ? 771 : 769;
    story.steps.push_back({sending.order, sending.at_us,
                           fmt::format("{}, event {}{}", expanded ? "its chain is expanded and sent" : "reported", id,
                                       sending.size == 0 ? "" : fmt::format(", {} bytes", sending.size))});
    switch (story.event) {
        // A document waits for the line that says whether it is traced.
        case event_id::ioa_alert:
        case event_id::memory_trojan: return;
        case event_id::ioc:
            // An alert that is not to be traced ends with its report.
            if (most_tries_ == 0) return finish(story, End::reported, "tracing is off: trc_times is 0");
            return await_first_try(story);
        case event_id::kov:
            // The line that it was not completed came before. No trace follows then.
            if (story.end != End::not_completed) await_first_try(story);
            return;
        default: return finish(story, End::reported);
    }
}

void ProcessStories::send_chain(Story& story, const Sending& sending) {
    story.chain_sent = true;
    story.steps.push_back({sending.order, sending.at_us,
                           fmt::format("its chain is sent, event 770{}",
                                       sending.size == 0 ? "" : fmt::format(", {} bytes", sending.size))});
}

// What an alert is told that was reported before is about its chain.
bool ProcessStories::fail_sending(const Told& told) {
    // The trace worker writes the line from this file. The alarm worker does so only for a KOV
    // alert.
    const bool kov_line =
        told.entry.file == "reshdlwork_trace.cpp" && (hand_ == nullptr || hand_->event != event_id::kov);
    Story* story =
        told.entry.worker == Worker::trace || kov_line || !alarm_may_send(told.entry.worker) ? trace_hand_ : hand_;
    // The line names its alert. A story that was not reported yet is the one in hand, under a GUID
    // that is not known yet.
    if (told.row().says == Says::unsent_named) {
        story = find(told.guid());
        if (story == nullptr || !story->reported) story = in_hand(told);
    }
    if (story == nullptr) return false;
    // What was sent until now was not its report.
    if (story == hand_) settle_hand(false);
    // The last complaint before the end is the reason for it.
    const std::string why = story->complaints.empty() ? "" : story->complaints.back();
    finish(*story, story->reported ? End::chain_unsent : End::unsent, why);
    return true;
}

}  // namespace zelhost
