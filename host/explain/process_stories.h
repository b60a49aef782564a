// The stories of one process, told line by line.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/explain/entries.h"
#include "host/explain/story.h"
#include "host/explain/story_texts.h"

namespace zelhost {

// Tells which GUIDs are asked for, so that no more is kept than they need; empty when none is.
// Called with a GUID that a line has named.
using Wanted = std::function<bool(std::string_view guid)>;

// A line with its place among all that were read and what it says.
// It borrows the entry and the reading and lives as long as the call that gets it.
struct Told {
    const Entry& entry;
    uint64_t order;
    const Reading& reading;

    const StoryText& row() const { return *reading.row; }
    std::string_view value(size_t i) const { return reading.values[i]; }
    // The value as a number; 0 when it is none.
    int64_t number(size_t i) const;
    std::string_view guid() const {
        return row().guid < 0 ? std::string_view{} : value(static_cast<size_t>(row().guid));
    }
};

// Follows the threads of the process: each has one event in hand. What a line does not say, such as its alert or which
// of both workers wrote it, follows from what each of them has said before. Where both may have written it, the line
// waits until one of them says what only follows upon it.
//
// Owns nothing of the stories, which lie in `stories` and stay where they are. One thread.
class ProcessStories {
public:
    ProcessStories(int64_t process, std::deque<Story>& stories, const Wanted& wanted)
        : process_(process), stories_(stories), wanted_(wanted) {}

    // The lines of the process in the order of time.
    // False when the line cannot be placed.
    bool line(const Told& told);
    // What only a record tells: an event went into the bus, the bus gives one to the plug-in, the
    // plug-in gave one out.
    void published(const Entry& entry);
    void delivered();
    void sent(const Entry& entry, uint64_t order);
    // Nothing more comes. `gone`: a later process has taken this one's place.
    void end(bool gone);

private:
    // A message on its way to the bus, and whose it may be; both are set when that is not known yet.
    struct Sending {
        Story* of_alarm;
        Story* of_trace;
        bool batch;  // may be the alarm worker's batch of repeats
        uint64_t size;
        int64_t at_us;
        uint64_t order;
        bool settled = false;  // its end was taken for that of the other message
    };
    // An event that was published and not delivered yet. Its data is the document, if it has one.
    struct Published {
        EVENT_ID event;
        std::string data;
    };

    // Each takes the lines of one part of the road; false when the line has no alert.
    bool of_process(const Told& told);
    bool at_intake(const Told& told);
    bool on_alarm_worker(const Told& told);
    bool of_sending(const Told& told);
    bool of_trace(const Told& told);

    // Stories.
    // Makes a story that begins here.
    Story& open(EVENT_ID event);
    // From here on the story is found by its GUID.
    void set_guid(Story& story, std::string_view guid);
    // Null when no story has this GUID.
    Story* find(std::string_view guid);
    Story* find_or_open(std::string_view guid);
    // Whether the GUID may be the beginning of a longer one that is known.
    bool is_cut(std::string_view guid) const;
    static void step(Story& story, const Told& told, std::string text);
    // Ends the story. `why` is for people.
    static void finish(Story& story, End end, std::string why = {});

    // Intake.
    // A new event comes to the door.
    void take(const Told& told);
    // Gives the story the document that was published for it.
    void join_document(Story& story);
    // Takes the story out of the queue; null when it is not in it.
    Story* from_queue(EVENT_ID event);

    // Alarm worker.
    // The alarm worker takes up an event, and has done with it.
    bool begin(const Told& told, EVENT_ID event);
    void leave_hand();
    Story* in_hand(const Told& told);
    Story* of_kov(const Told& told);
    // Notes that the document was decoded, once.
    static void decode(Story& story, const Told& told);
    // Notes that the alert has come to the repeat filter.
    void enter_filter(Story& story);
    // Ends the story with the loss that the line tells.
    void lose(Story& story, const Told& told);
    void forget_repeats();

    // Sending.
    bool begin_sending(const Told& told);
    bool end_sending(const Told& told, bool made);
    // Tells the message as what it was, once it is known whose it is.
    void settle(const Sending& sending, bool by_alarm_worker);
    void settle_others();
    void settle_hand(bool has_sent);
    void confirm_report(Story& story, const Told& told);
    bool alarm_may_send(Worker writer) const;
    bool trace_may_send() const;
    void report(Story& story, const Sending& sending);
    void send_chain(Story& story, const Sending& sending);
    bool fail_sending(const Told& told);

    // Traces.
    // The story that an answer of the trace module is about.
    Story* of_answer(const Told& told);
    bool answer(const Told& told);
    void answer_success(Story& story, const Told& told);
    void answer_failed(Story& story, const Told& told);
    void answer_dropped(Story& story, const Told& told);
    void await_first_try(Story& story);
    std::string try_text(const Story& story) const;
    std::string shed_text(const Story& story) const;
    std::string waiting_text(const Story& story) const;

    const int64_t process_;
    std::deque<Story>& stories_;
    const Wanted& wanted_;
    std::vector<Story*> own_;
    std::map<std::string, std::vector<Story*>, std::less<>> by_guid_;

    // The threads.
    Story* at_door_ = nullptr;     // bus thread
    std::deque<Story*> in_queue_;  // between bus thread and alarm worker
    Story* hand_ = nullptr;        // alarm worker
    Story* trace_hand_ = nullptr;  // trace worker; the trace that has its answer
    bool trace_may_send_ = false;
    bool batch_may_come_ = false;
    std::vector<Sending> sending_;    // begun, without an end
    std::vector<Sending> undecided_;  // ended, of either worker
    std::string call_complaint_;      // of the last call of the trace module
    uint32_t file_traces_ = 0;        // asked for, without an answer

    // What the repeat filter remembers, and whether a story refers to it.
    std::vector<Story*> in_filter_;
    bool filter_is_kept_ = false;

    // Settings and figures, as far as they were told.
    std::optional<int64_t> most_tries_, trace_percent_, queue_limit_;
    int64_t limit_ms_ = 60000;
    int64_t trunk_ms_ = 300, full_ms_ = 5000;
    int64_t prediction_ms_ = 0;
    int32_t trunk_level_ = 2;
    bool resetting_ = false;
    bool stopping_ = false;

    // From a record.
    std::deque<Published> published_;
    bool delivery_is_open_ = false;
};

}  // namespace zelhost
