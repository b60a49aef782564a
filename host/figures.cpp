#include "figures.h"

#include <charconv>
#include <utility>

#include "event_kinds.h"
#include "platform/zel_support.h"

namespace zel {
namespace {

// The event that the current thread has in hand: a line that names none belongs to it. None on the trace worker.
thread_local uint32_t event_in_hand = 0;

enum : uint32_t { no_event = 0, numbered = 1 };

// What a log line says, by its start behind the prefix.
struct Meaning {
    std::string_view text;
    uint64_t KindFigures::* figure;
    // The event that the thread takes in hand: an id, or the number that follows the text.
    uint32_t begins = no_event;
    // Whose figure it is when the thread has none in hand.
    uint32_t otherwise = no_event;
};
constexpr Meaning kMeanings[] = {
    // On the bus thread.
    {"get event:", &KindFigures::got, numbered},
    {"GetNativeEventData failed!", &KindFigures::no_payload},
    {"The event is in the hot cache.", &KindFigures::hot},
    {"The queue reached the threshold.", &KindFigures::queue_full},
    {"Get event struct error!", &KindFigures::not_taken},
    {"[work queue count", &KindFigures::queued},
    // On the alarm worker.
    {"start handle ioc!", &KindFigures::begun, kDnsHit},
    {"start handle kov!", &KindFigures::begun, kKov},
    {"start handle trc_ex!", &KindFigures::begun, kExpand},
    {"start handle ", &KindFigures::begun, numbered},
    {"ignore handle: ", &KindFigures::ignored, numbered},
    {"GetJsonInfo failed!", &KindFigures::undecoded},
    {"The alarm has been filtered.", &KindFigures::filtered},
    {"Trigger rule only, skip.", &KindFigures::trigger_only},
    {"The alert has been repeated.", &KindFigures::repeats},
    {"Get com protobuf failed!", &KindFigures::unbuilt},
    {"event invoke failed! guid:", &KindFigures::unsent},
    {"event invoke failed!", &KindFigures::unsent, no_event, kKov},
    {"trc_ex event invoke failed!", &KindFigures::unsent},
    {"zeltrc comp function is null.", &KindFigures::no_function, no_event, kKov},
    {"host alert,trace", &KindFigures::host_alerts},
    {"container alert, not trace.", &KindFigures::untraced},
    {"event given up:", &KindFigures::given_up},
    // On either worker.
    {"Failed to complete the alarm information.", &KindFigures::not_completed, no_event, kKov},
    {"alert trace success, guid:", &KindFigures::succeeded},
    {"alert trace failed, guid:", &KindFigures::failed},
    {"alert trace dropped, guid:", &KindFigures::dropped},
    {"alert trace retry, guid:", &KindFigures::retried},
};

constexpr std::string_view kGuidMark = "guid:";
constexpr std::string_view kSettings = "queue max:";
constexpr std::string_view kNoTries = "trc times:0,";
constexpr std::string_view kPushed = ", push into eliminator";

// Cuts off "[PID:...]\t[LEVEL]\t[zelreshdl] [file(line)] ". Empty for the lines of others.
std::string_view text_of(std::string_view line) {
    constexpr std::string_view tag = "[zelreshdl] [";
    const size_t at = line.find(tag);
    const size_t end = at == std::string_view::npos ? at : line.find(")] ", at + tag.size());
    return end == std::string_view::npos ? std::string_view{} : line.substr(end + 3);
}

const Meaning* find_meaning(std::string_view text) {
    for (const Meaning& meaning : kMeanings)
        if (text.starts_with(meaning.text)) return &meaning;
    return nullptr;
}

uint32_t number_at(std::string_view text) {
    uint32_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

}  // namespace

uint64_t Totals::sum(uint64_t KindFigures::* figure) const {
    uint64_t sum = 0;
    for (const auto& [id, kind] : kinds) sum += kind.*figure;
    return sum;
}

KindFigures Totals::of(uint32_t event_id) const {
    const auto found = kinds.find(event_id);
    return found == kinds.end() ? KindFigures{} : found->second;
}

void Figures::log_line(int32_t level, std::string_view line) {
    last_sign_ = Clock::now();
    const std::string_view text = text_of(line);
    const Meaning* meaning = find_meaning(text);
    if (meaning != nullptr && meaning->begins != no_event)
        event_in_hand = meaning->begins == numbered ? number_at(text.substr(meaning->text.size())) : meaning->begins;

    const std::lock_guard lock(mutex_);
    totals_.errors += level == ZEL_LOG_ERROR;
    totals_.warnings += level == ZEL_LOG_WARN;
    if (level == ZEL_LOG_ERROR && !text.empty()) {
        totals_.last_errors[0] = std::move(totals_.last_errors[1]);
        totals_.last_errors[1] = text;
    }
    if (text.starts_with(kSettings)) totals_.tracing_off = text.find(kNoTries) != std::string_view::npos;

    if (text.ends_with(kPushed)) {
        const size_t guid = text.rfind(kGuidMark) + kGuidMark.size() + 1;
        pushed_.emplace(text.substr(guid, text.size() - kPushed.size() - guid));
    }
    if (meaning == nullptr) return;
    ++(totals_.kinds[event_in_hand != 0 ? event_in_hand : meaning->otherwise].*meaning->figure);

    if (meaning->figure == &KindFigures::begun || meaning->figure == &KindFigures::ignored) {
        ended_since_.reset();
        if (event_in_hand == kKov) ended_since_.emplace();
    }
    if (meaning->text.starts_with("alert trace "))
        trace_line(meaning->figure, std::string(text.substr(meaning->text.size())));
}

void Figures::trace_line(uint64_t KindFigures::* figure, const std::string& guid) {
    const bool on_alarm_worker = event_in_hand == kKov;
    const auto ended_since = on_alarm_worker ? std::exchange(ended_since_, std::nullopt) : std::nullopt;
    if (figure == &KindFigures::retried) {
        if (!on_alarm_worker)
            put_off_.emplace(guid, event_in_hand);
        else if (!ended_since || !ended_since->contains(guid))
            put_off_[guid] = event_in_hand;
        return;
    }
    if (const auto pushed = pushed_.find(guid); pushed != pushed_.end()) pushed_.erase(pushed);
    put_off_.erase(guid);
    if (ended_since_) ended_since_->insert(guid);
}

void Figures::published(uint32_t event_id) {
    last_sign_ = Clock::now();
    const std::lock_guard lock(mutex_);
    ++totals_.kinds[event_id].in;
}

void Figures::not_subscribed(uint32_t event_id) {
    const std::lock_guard lock(mutex_);
    ++totals_.kinds[event_id].in;
    ++totals_.kinds[event_id].not_subscribed;
}

void Figures::sent(const ST_PB_EVENT& event) {
    last_sign_ = Clock::now();
    const std::lock_guard lock(mutex_);
    const uint32_t source = event.uSourceEventId;
    const bool guid = event.pszGuid != nullptr && *event.pszGuid != '\0';
    KindFigures& kind = totals_.kinds[source];
    if (event.uEventId == kFinishedTrace && source == kDnsHit && !guid)
        ++totals_.duplicate_batches;
    else if (event.uEventId == kFinishedTrace && source != kExpand)
        ++kind.traces;
    else
        ++kind.reported;
}

void Figures::memory_check() {
    last_sign_ = Clock::now();
    const std::lock_guard lock(mutex_);
    ++totals_.memory_checks;
}

void Figures::callback() {
    last_sign_ = Clock::now();
    const std::lock_guard lock(mutex_);
    ++totals_.callbacks;
}

void Figures::file_trace() {
    const std::lock_guard lock(mutex_);
    ++totals_.file_traces;
}

Totals Figures::totals() const {
    const std::lock_guard lock(mutex_);
    Totals totals = totals_;
    totals.waiting_traces = pushed_.size();
    for (const auto& [guid, event] : put_off_) {
        totals.waiting_traces += pushed_.contains(guid) ? 0 : 1;
        totals.waiting_completions += event == kKov;
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

}  // namespace zel
