// What a host counts by itself: from the lines at the logger's tap, from what it published and from what came back.
//
// The plug-in's log is the only account of what happens to an event inside it. So one table says which line raises
// which figure; a changed log text has to be changed there, and a test holds the table against the plug-in's sources.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "platform/event_ids.h"
#include "platform/native_payloads.h"

namespace zelhost {

// Figures of one kind of incoming event. Every event that was published has exactly one end, unless it still waits.
// All numbers count events, except those in the last line, which count answers.
struct KindFigures {
    uint64_t in = 0;        // published by the host, or meant to be
    uint64_t got = 0;       // taken up by the plug-in's call-back
    uint64_t queued = 0;    // put into the event queue
    uint64_t begun = 0;     // taken by the alarm worker
    uint64_t reported = 0;  // end: a first report, event 769 or 771, or the chain of event 1794

    // Ends without a report.
    uint64_t not_subscribed = 0;                                                      // before the bus
    uint64_t no_payload = 0, hot = 0, queue_full = 0, not_taken = 0;                  // on the bus thread
    uint64_t undecoded = 0, filtered = 0, trigger_only = 0, unbuilt = 0, unsent = 0;  // on the alarm worker
    uint64_t ignored = 0, given_up = 0, no_function = 0;

    uint64_t repeats = 0;        // of the reported ones
    uint64_t host_alerts = 0;    // of the reported ones: handed to the trace stage
    uint64_t untraced = 0;       // of the reported documents: the others
    uint64_t not_completed = 0;  // KOV: reported, although its completion was no success
    uint64_t traces = 0;         // finished chains sent, event 770
    uint64_t succeeded = 0, failed = 0, dropped = 0, retried = 0;  // answers of the trace stage
};
using Figure = uint64_t KindFigures::*;

// Where an event is when it ends.
// An event that goes on has no end at that line.
enum class Place : uint8_t { goes_on, before_the_bus, bus_thread, event_queue, alarm_worker };

// One row for each text of the log that counts: what it counts, and what that means.
struct LogText {
    enum : EVENT_ID { none = 0, numbered = 1 };

    std::string_view text;  // the start of the line, behind the prefix; empty when the host needs no line to know
    Figure figure;
    // For a figure that ends an event without a report: where, and how people say it. A figure with several texts says
    // so at the first one.
    Place ends = Place::goes_on;
    const char* words = nullptr;
    // Which event the thread has in hand from here on: an id, or the number that follows the text.
    EVENT_ID begins = none;
    // Whose figure it is when the thread has no event in hand.
    EVENT_ID otherwise = none;
};
std::span<const LogText> log_texts();

// A line at the logger's tap, and what the counter makes of it. The texts are valid during the call that brings it.
struct LogLine {
    int32_t level = 0;
    std::string_view text;         // the whole line, prefix included
    std::string_view body{};       // the plug-in's text, without the prefix; empty for the lines of others
    const LogText* row = nullptr;  // what it counts; null for nothing
    EVENT_ID event = 0;            // whose figure it is; 0 for no event's
    std::string_view rest{};       // what stands behind the row's text
    bool advice = false;           // a hint about the environment, which counts neither as error nor as warning
};

// Texts that say more than a count: the GUIDs in the eliminator's account, and the setting that turns tracing off. The
// last one comes with every message while the environment has no agent id, and says nothing of the message.
inline constexpr std::string_view kGuidText = "guid: ";
inline constexpr std::string_view kPushedText = ", push into eliminator";
inline constexpr std::string_view kSettingsText = "queue max:";
inline constexpr std::string_view kTriesText = "trc times:";
inline constexpr std::string_view kNoAgentIdText = "get agentid from env error !";

// A copy of all figures at one moment. The session makes it, and its reader owns it.
struct Totals {
    std::map<uint32_t, KindFigures> kinds;  // by event id; 0 for what belongs to no event
    uint64_t memory_checks = 0;
    uint64_t duplicate_batches = 0;
    uint64_t file_traces = 0, process_traces = 0;  // accepted by the exports
    uint64_t answers = 0, file_answers = 0;        // calls of the result callback: all, and those for file traces
    uint64_t errors = 0, warnings = 0;             // log lines that are no advice
    std::string last_errors[2];                    // texts, the later one last
    bool tracing_off = false;                      // by the settings
    uint64_t waiting_traces = 0;                   // handed to the trace stage, without an end
    uint64_t waiting_completions = 0;              // of these, KOV alerts before their report
    uint64_t put_off_traces = 0;                   // of these, put off at least once

    uint64_t sum(Figure figure) const;        // over all kinds
    KindFigures of(uint32_t event_id) const;  // zeros for a kind that was not met
};

// The counter. Any thread may call any function; one mutex guards all figures.
class Figures {
public:
    using Clock = std::chrono::steady_clock;

    // A line at the tap, prefix included. `thread` tells the threads of the process apart: a line that names no event
    // belongs to the one that its thread has in hand.
    LogLine log_line(uint64_t thread, int32_t level, std::string_view line);
    // The plug-in has stopped. Its workers are gone, and a new thread that gets the number of one has nothing in hand.
    void workers_ended();

    // The session calls each of these when it has seen one such thing.
    void published(uint32_t event_id);
    void not_subscribed(uint32_t event_id);
    void sent(const ST_PB_EVENT& event);
    void memory_check();
    void answer(int code);
    void file_trace();
    void process_trace();

    Totals totals() const;
    // When something was last published, logged or sent.
    Clock::time_point last_sign() const { return last_sign_.load(); }
    // Alerts in the eliminator's account whose trace has no end yet. They are known from their first push on.
    uint64_t pushed_traces() const;
    // Alerts that were put off and have no end yet, by the log.
    uint64_t put_off_traces() const;

private:
    void trace_line(Figure figure, EVENT_ID in_hand, const std::string& guid);

    // A lock for all, because one line may raise several figures. The tap calls from many threads.
    mutable std::mutex mutex_;
    // All under the mutex.
    Totals totals_;
    std::map<uint64_t, EVENT_ID> in_hand_;     // by thread; none for the trace worker and foreign threads
    std::multiset<std::string> pushed_;        // GUIDs in the eliminator's account
    std::map<std::string, EVENT_ID> put_off_;  // GUIDs with the event in hand at the first time
    // While the alarm worker has a KOV alert in hand: GUIDs whose trace has ended since. That worker says that the
    // alert was put off after it has queued it, and the trace worker may have been quicker.
    std::optional<std::set<std::string>> ended_since_;

    // Read without the lock by whoever waits for quiet.
    std::atomic<Clock::time_point> last_sign_{Clock::now()};
};

}  // namespace zelhost
