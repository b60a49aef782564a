#include "host/lib/figures.h"

#include <charconv>
#include <utility>

#include "platform/zel_support.h"

namespace zelhost {
namespace {

// Short names keep each row on one line.
constexpr Place goes_on = Place::goes_on;
constexpr EVENT_ID nothing = LogText::none;
constexpr EVENT_ID numbered = LogText::numbered;

// One row a text, in the order in which they are tried: a longer text stands before its own start.
constexpr LogText kLogTexts[] = {
    // Without a line: the bus answers that nobody takes the event.
    {{}, &KindFigures::not_subscribed, Place::before_the_bus, "not subscribed"},

    // On the bus thread.
    {"get event:", &KindFigures::got, goes_on, {}, numbered},
    {"GetNativeEventData failed!", &KindFigures::no_payload, Place::bus_thread, "without payload"},
    {"The event is in the hot cache.", &KindFigures::hot, Place::bus_thread, "merged by the hot cache"},
    {"The queue reached the threshold.", &KindFigures::queue_full, Place::bus_thread, "shed, queue full"},
    {"Get event struct error!", &KindFigures::not_taken, Place::bus_thread, "refused at intake"},
    {"[work queue count", &KindFigures::queued},

    // On the alarm worker.
    {"start handle ioc!", &KindFigures::begun, goes_on, {}, event_id::ioc},
    {"start handle kov!", &KindFigures::begun, goes_on, {}, event_id::kov},
    {"start handle trc_ex!", &KindFigures::begun, goes_on, {}, event_id::trc_ex},
    {"start handle ", &KindFigures::begun, goes_on, {}, numbered},
    {"ignore handle: ", &KindFigures::ignored, Place::event_queue, "ignored", numbered},
    {"GetJsonInfo failed!", &KindFigures::undecoded, Place::alarm_worker, "not decoded"},
    {"The alarm has been filtered.", &KindFigures::filtered, Place::alarm_worker, "filtered, busy"},
    {"Trigger rule only, skip.", &KindFigures::trigger_only, Place::alarm_worker, "trigger rules only"},
    {"The alert has been repeated.", &KindFigures::repeats},
    {"Get com protobuf failed!", &KindFigures::unbuilt, Place::alarm_worker, "message not built"},
    {"event invoke failed! guid:", &KindFigures::unsent, Place::alarm_worker, "not sent"},
    {"event invoke failed!", &KindFigures::unsent, goes_on, {}, nothing, event_id::kov},
    {"trc_ex event invoke failed!", &KindFigures::unsent},
    {"zeltrc comp function is null.", &KindFigures::no_function, Place::alarm_worker, "without trace module", nothing,
     event_id::kov},
    {"host alert,trace", &KindFigures::host_alerts},
    {"container alert, not trace.", &KindFigures::untraced},
    {"event given up:", &KindFigures::given_up, Place::alarm_worker, "given up"},

    // On either worker.
    {"Failed to complete the alarm information.", &KindFigures::not_completed, goes_on, {}, nothing, event_id::kov},
    {"alert trace success, guid:", &KindFigures::succeeded},
    {"alert trace failed, guid:", &KindFigures::failed},
    {"alert trace dropped, guid:", &KindFigures::dropped},
    {"alert trace retry, guid:", &KindFigures::retried},
};
// The four rows of answers begin with this text.
constexpr std::string_view kTraceAnswer = "alert trace ";

constexpr int kFileTraceCode = 8;  // of the result callback

// Cuts off "[PID:...]\t[LEVEL]\t[zelreshdl] [file(line)] ". Empty for the lines of others.
std::string_view text_of(std::string_view line) {
    constexpr std::string_view tag = "[zelreshdl] [";
    const size_t at = line.find(tag);
    const size_t end = at == std::string_view::npos ? at : line.find(")] ", at + tag.size());
    return end == std::string_view::npos ? std::string_view{} : line.substr(end + 3);
}

// Lines of others have an empty text and no row.
const LogText* find_row(std::string_view text) {
    for (const LogText& row : kLogTexts)
        if (!row.text.empty() && text.starts_with(row.text)) return &row;
    return nullptr;
}

// 0 when there is no number.
uint32_t number_at(std::string_view text) {
    uint32_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

}  // namespace

std::span<const LogText> log_texts() { return kLogTexts; }

// A sum over all kinds holds also what belongs to no event.
uint64_t Totals::sum(Figure figure) const {
    uint64_t sum = 0;
    for (const auto& [id, kind] : kinds) sum += kind.*figure;
    return sum;
}

KindFigures Totals::of(uint32_t event_id) const {
    const auto found = kinds.find(event_id);
    return found == kinds.end() ? KindFigures{} : found->second;
}

// Called for every line of the process, at level debug a hundred thousand times for a large alert: the table is
// searched without the mutex.
LogLine Figures::log_line(uint64_t thread, int32_t level, std::string_view line) {
    last_sign_ = Clock::now();
    const std::string_view text = text_of(line);
    const LogText* const row = find_row(text);
    // The line says nothing of a message. It would otherwise count as an error for each one.
    if (text == kNoAgentIdText) return {.level = level, .text = line, .body = text, .advice = true};

    const std::lock_guard lock(mutex_);
    totals_.errors += level == ZEL_LOG_ERROR;
    totals_.warnings += level == ZEL_LOG_WARN;
    // The last two errors are kept, for a summary that names them.
    if (level == ZEL_LOG_ERROR && !text.empty()) {
        totals_.last_errors[0] = std::move(totals_.last_errors[1]);
        totals_.last_errors[1] = text;
    }
    // The settings line comes at each start. Tracing is off when no try is allowed.
    if (const size_t tries = text.find(kTriesText); text.starts_with(kSettingsText) && tries != std::string_view::npos)
        totals_.tracing_off = number_at(text.substr(tries + kTriesText.size())) == 0;
    // The GUID stands between its mark and the end of the line.
    if (text.ends_with(kPushedText)) {
        const size_t guid = text.rfind(kGuidText) + kGuidText.size();
        pushed_.emplace(text.substr(guid, text.size() - kPushedText.size() - guid));
    }
    if (row == nullptr) return {.level = level, .text = line, .body = text};

    // A thread keeps its event in hand until it begins another one.
    if (row->begins != nothing)
        in_hand_[thread] = row->begins == numbered ? number_at(text.substr(row->text.size())) : row->begins;
    const auto held = in_hand_.find(thread);
    const EVENT_ID in_hand = held == in_hand_.end() ? nothing : held->second;
    const EVENT_ID event = in_hand != nothing ? in_hand : row->otherwise;
    const std::string_view rest = text.substr(row->text.size());
    ++(totals_.kinds[event].*row->figure);

    // The alarm worker has begun something else. What it knew of the last KOV alert does not count
    // any more.
    if (row->figure == &KindFigures::begun || row->figure == &KindFigures::ignored) {
        ended_since_.reset();
        if (in_hand == event_id::kov) ended_since_.emplace();
    }
    // The rest of such a line is the GUID.
    if (text.starts_with(kTraceAnswer)) trace_line(row->figure, in_hand, std::string(rest));
    return {.level = level, .text = line, .body = text, .row = row, .event = event, .rest = rest};
}

// Called between a stop and the next start, when no thread of the plug-in runs.
void Figures::workers_ended() {
    const std::lock_guard lock(mutex_);
    in_hand_.clear();
    ended_since_.reset();
}

// An answer that is no retry is the end of that trace. A retry is told on the alarm worker for a KOV alert, on the
// trace worker for all others.
void Figures::trace_line(Figure figure, EVENT_ID in_hand, const std::string& guid) {
    const bool on_alarm_worker = in_hand == event_id::kov;
    const auto ended_since = on_alarm_worker ? std::exchange(ended_since_, std::nullopt) : std::nullopt;
    if (figure == &KindFigures::retried) {
        // The trace worker has no event in hand, so nothing could have been quicker than this line.
        if (!on_alarm_worker)
            put_off_.emplace(guid, in_hand);
        else if (!ended_since || !ended_since->contains(guid))
            put_off_[guid] = in_hand;
        return;
    }
    // A GUID may stand in the list more than once. One entry goes with each end.
    if (const auto pushed = pushed_.find(guid); pushed != pushed_.end()) pushed_.erase(pushed);
    put_off_.erase(guid);
    if (ended_since_) ended_since_->insert(guid);
}

void Figures::published(uint32_t event_id) {
    last_sign_ = Clock::now();
    const std::lock_guard lock(mutex_);
    ++totals_.kinds[event_id].in;
}

// Counts as published, so that every event of a script is found in the account.
void Figures::not_subscribed(uint32_t event_id) {
    const std::lock_guard lock(mutex_);
    ++totals_.kinds[event_id].in;
    ++totals_.kinds[event_id].not_subscribed;
}

// A 770 without a GUID is a batch of repeated DNS hits. A 770 for an expansion is the report of its event, every other
// one a finished trace.
void Figures::sent(const ST_PB_EVENT& event) {
    last_sign_ = Clock::now();
    const std::lock_guard lock(mutex_);
    const uint32_t source = event.uSourceEventId;
    const bool guid = event.pszGuid != nullptr && *event.pszGuid != '\0';
    KindFigures& kind = totals_.kinds[source];
    if (event.uEventId == event_id::finished_trace && source == event_id::ioc && !guid)
        ++totals_.duplicate_batches;
    else if (event.uEventId == event_id::finished_trace && source != event_id::trc_ex)
        ++kind.traces;
    else
        ++kind.reported;
}

void Figures::memory_check() {
    last_sign_ = Clock::now();
    // Each of the following is called by the session for one thing that it has seen.
    const std::lock_guard lock(mutex_);
    ++totals_.memory_checks;
}

void Figures::answer(int code) {
    last_sign_ = Clock::now();
    const std::lock_guard lock(mutex_);
    ++totals_.answers;
    totals_.file_answers += code == kFileTraceCode;
}

void Figures::file_trace() {
    const std::lock_guard lock(mutex_);
    ++totals_.file_traces;
}

void Figures::process_trace() {
    const std::lock_guard lock(mutex_);
    ++totals_.process_traces;
}

// A trace that was pushed and then put off waits once.
// A copy, so that the caller can work on it without the lock.
Totals Figures::totals() const {
    const std::lock_guard lock(mutex_);
    Totals totals = totals_;
    totals.waiting_traces = pushed_.size();
    totals.put_off_traces = put_off_.size();
    for (const auto& [guid, event] : put_off_) {
        totals.waiting_traces += pushed_.contains(guid) ? 0 : 1;
        totals.waiting_completions += event == event_id::kov;
    }
    return totals;
}

uint64_t Figures::pushed_traces() const {
    const std::lock_guard lock(mutex_);
    return pushed_.size();
}

uint64_t Figures::put_off_traces() const {
    const std::lock_guard lock(mutex_);
    return put_off_.size();
}

}  // namespace zelhost
