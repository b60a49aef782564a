#include "outcome.h"

#include <initializer_list>

#include "event_kinds.h"

namespace zel {
namespace {

int64_t ended_at(const KindFigures& kind, Place place) {
    int64_t sum = 0;
    for (const Ending& ending : kEndings)
        if (ending.place == place) sum += as_signed(kind.*ending.figure);
    return sum;
}

int64_t of_documents(const Totals& totals, std::initializer_list<Figure> figures) {
    int64_t sum = 0;
    for (const uint32_t id : {kIoaAlert, kMemoryTrojan})
        for (const Figure figure : figures) sum += as_signed(totals.of(id).*figure);
    return sum;
}

template <Figure figure>
int64_t sum_of(const Totals& totals) {
    return as_signed(totals.sum(figure));
}

// A KOV alert that is put off by the alarm worker enters the trc queue as a first attempt, all other retries enter the
// delay queue.
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
         const KindFigures kov = t.of(kKov);
         return as_signed(kov.begun + kov.retried) + (t.tracing_off ? 0 : chains(t));
     }},
    {"delayedTraceTotalCount",
     [](const Totals& t) { return as_signed(t.sum(&KindFigures::retried) - t.of(kKov).retried); }},
};

}  // namespace

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

int64_t chains(const Totals& totals) {
    const KindFigures kov = totals.of(kKov);  // comes a second time, completed
    return as_signed(totals.sum(&KindFigures::host_alerts) + totals.of(kDnsHit).reported + totals.file_traces) +
           as_signed(kov.reported) - as_signed(kov.not_completed);
}

int64_t asked_traces(const Totals& totals) {
    const KindFigures kov = totals.of(kKov);
    return as_signed(kov.begun) - as_signed(kov.no_function) + (totals.tracing_off ? 0 : chains(totals));
}

int64_t ended_traces(const Totals& totals) {
    return as_signed(totals.sum(&KindFigures::succeeded) + totals.sum(&KindFigures::failed) +
                     totals.sum(&KindFigures::dropped));
}

std::span<const CommonFigure> common_figures() { return kCommonFigures; }

}  // namespace zel
