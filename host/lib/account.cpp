#include "host/lib/account.h"

#include <initializer_list>

namespace zelhost {
namespace {

// All events of a kind that ended at one place.
// The sum runs over the rows of the table of log lines, so an end that is added there is counted
// here.
int64_t ended_at(const KindFigures& kind, Place place) {
    int64_t sum = 0;
    for (const LogText& row : log_texts())
        if (row.ends == place) sum += as_signed(kind.*row.figure);
    return sum;
}

// Alert documents are counted by the plug-in apart from all other events.
// Kinds without figures count as zeros.
int64_t of_documents(const Totals& totals, std::initializer_list<Figure> figures) {
    int64_t sum = 0;
    for (const uint32_t id : {event_id::ioa_alert, event_id::memory_trojan})
        for (const Figure figure : figures) sum += as_signed(totals.of(id).*figure);
    return sum;
}

uint64_t expanded_chains(const Totals& totals) { return totals.of(event_id::trc_ex).reported; }

// An expanded chain counts as the report of its event, but is no first report to a reader.
// The first row must stay the first: others take it for the first reports.
constexpr GivenOut kGivenOut[] = {
    {"first_reports", [](const Totals& t) { return t.sum(&KindFigures::reported) - expanded_chains(t); }},
    {"traces", [](const Totals& t) { return t.sum(&KindFigures::traces); }},
    {"expanded_chains", expanded_chains},
    {"duplicate_batches", [](const Totals& t) { return t.duplicate_batches; }},
    {"memory_checks", [](const Totals& t) { return t.memory_checks; }},
    {"answers", [](const Totals& t) { return t.answers; }},
};

// A figure that the plug-in counts over all kinds.
// A plain function for each figure, because a row of the table holds a pointer to a function.
template <Figure figure>
int64_t sum_of(const Totals& totals) {
    return as_signed(totals.sum(figure));
}

// A KOV alert that is put off by the alarm worker enters the trc queue as a first attempt, all other retries enter the
// delay queue.
// In the order of the report.
constexpr CommonFigure kCommonFigures[] = {
    {"recvAlarmCount", sum_of<&KindFigures::got>},
    {"eventQueueTotalCount", sum_of<&KindFigures::queued>},
    {"eventQueueOverflowCount", sum_of<&KindFigures::queue_full>},
    {"hotCacheHitCount", sum_of<&KindFigures::hot>},
    {"alertEventTotalCount",
     [](const Totals& t) {
         return of_documents(t, {&KindFigures::reported, &KindFigures::unbuilt, &KindFigures::unsent});
     }},
    {"alertEventFilterCount", sum_of<&KindFigures::repeats>},
    {"sentToMbCount", [](const Totals& t) { return of_documents(t, {&KindFigures::reported}); }},
    {"traceFailedCount", sum_of<&KindFigures::failed>},
    {"traceDroppedCount", sum_of<&KindFigures::dropped>},
    {"firstTraceTotalCount",
     [](const Totals& t) {
         const KindFigures kov = t.of(event_id::kov);
         return as_signed(kov.begun + kov.retried) + (t.tracing_off ? 0 : chains(t));
     }},
    {"delayedTraceTotalCount",
     [](const Totals& t) { return as_signed(t.sum(&KindFigures::retried) - t.of(event_id::kov).retried); }},
};

}  // namespace

// An event passes these four places in turn. What entered a place and neither ended there nor went on is still in it.
// Published, minus what ended before the bus, minus what the plug-in's call-back has seen.
int64_t not_taken_up(const KindFigures& kind) {
    return as_signed(kind.in) - ended_at(kind, Place::before_the_bus) - as_signed(kind.got);
}

int64_t at_intake(const KindFigures& kind) {
    return as_signed(kind.got) - ended_at(kind, Place::bus_thread) - as_signed(kind.queued);
}

int64_t in_queue(const KindFigures& kind) {
    return as_signed(kind.queued) - ended_at(kind, Place::event_queue) - as_signed(kind.begun);
}

int64_t on_worker(const KindFigures& kind) {
    return as_signed(kind.begun) - ended_at(kind, Place::alarm_worker) - as_signed(kind.reported);
}

// While events move, the lines of two threads may be counted in the other order. A sum below 0 is
// then shown as 0.
uint64_t queued(const Totals& totals) {
    int64_t sum = 0;
    for (const auto& [id, kind] : totals.kinds) sum += in_queue(kind);
    return sum > 0 ? static_cast<uint64_t>(sum) : 0;
}

// In the order of the table of log lines, which is that of the road. The last two ends have no line
// in the log.
std::vector<OtherEnd> other_ends(const KindFigures& kind, uint64_t put_off) {
    std::vector<OtherEnd> ends;
    const auto take = [&](const char* words, int64_t count) {
        if (count > 0) ends.push_back({words, count});
    };
    for (const LogText& row : log_texts())
        if (row.words != nullptr) take(row.words, as_signed(kind.*row.figure));
    take("not taken up, reset or stop", not_taken_up(kind));
    take("waiting at the stop", in_queue(kind) + as_signed(put_off));
    return ends;
}

std::span<const GivenOut> given_out() { return kGivenOut; }

// Host alerts, DNS hits and file traces are pushed once each.
int64_t chains(const Totals& totals) {
    const KindFigures kov = totals.of(event_id::kov);  // comes a second time, completed
    return as_signed(totals.sum(&KindFigures::host_alerts) + totals.of(event_id::ioc).reported + totals.file_traces) +
           as_signed(kov.reported) - as_signed(kov.not_completed);
}

// A KOV alert is completed before it is reported, whether tracing is on or not.
// An alert that no trace module could complete was never asked for.
int64_t asked_traces(const Totals& totals) {
    const KindFigures kov = totals.of(event_id::kov);
    return as_signed(kov.begun) - as_signed(kov.no_function) + (totals.tracing_off ? 0 : chains(totals));
}

int64_t ended_traces(const Totals& totals) {
    return as_signed(totals.sum(&KindFigures::succeeded) + totals.sum(&KindFigures::failed) +
                     totals.sum(&KindFigures::dropped));
}

// A document that was reported has its end with the line that says whether it is traced; until then the alarm worker
// still has it in hand.
Left left_of(const Totals& totals) {
    Left left;
    for (const auto& [id, kind] : totals.kinds) {
        // Kind 0 holds what belongs to no event.
        if (id == 0) continue;
        left.at_intake += at_intake(kind);
        left.events += in_queue(kind);
        // A KOV alert between two tries of its completion is in no queue of events. It is counted
        // by itself.
        (id == event_id::kov ? left.kov : left.on_worker) += on_worker(kind);
        if (id == event_id::ioa_alert || id == event_id::memory_trojan)
            left.on_worker += as_signed(kind.reported) - as_signed(kind.host_alerts) - as_signed(kind.untraced);
    }
    left.traces = asked_traces(totals) - ended_traces(totals);
    return left;
}

std::span<const CommonFigure> common_figures() { return kCommonFigures; }

}  // namespace zelhost
