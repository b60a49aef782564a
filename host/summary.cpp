// What a run came to, for a person: every event accounted for by kind, and the host's figures beside the plug-in's own.
#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "event_kinds.h"
#include "run.h"

namespace zel {
namespace {

using Figure = uint64_t KindFigures::*;

struct Ending {
    Figure figure;
    const char* words;
};
constexpr Ending kEndings[] = {
    {&KindFigures::not_subscribed, "not subscribed"},
    {&KindFigures::hot, "merged by the hot cache"},
    {&KindFigures::queue_full, "shed, queue full"},
    {&KindFigures::no_payload, "without payload"},
    {&KindFigures::not_taken, "refused at intake"},
    {&KindFigures::undecoded, "not decoded"},
    {&KindFigures::filtered, "filtered, busy"},
    {&KindFigures::trigger_only, "trigger rules only"},
    {&KindFigures::unbuilt, "message not built"},
    {&KindFigures::unsent, "not sent"},
    {&KindFigures::no_function, "without trace module"},
    {&KindFigures::given_up, "given up"},
    {&KindFigures::ignored, "ignored"},
};

// Signed: a figure that is too large shows as a negative rest.
int64_t minus(uint64_t a, uint64_t b) { return static_cast<int64_t>(a - b); }

class Text {
public:
    template <class... T>
    void line(fmt::format_string<T...> format, T&&... values) {
        fmt::format_to(std::back_inserter(text_), format, std::forward<T>(values)...);
        text_ += '\n';
    }
    std::string take() { return std::move(text_); }

private:
    std::string text_;
};

void write_kind(Text& out, uint32_t id, const KindFigures& kind, uint64_t waiting) {
    std::vector<std::string> parts;
    int64_t rest = minus(kind.in, kind.reported);
    const auto take = [&](int64_t n, const char* words) {
        if (n <= 0) return;
        parts.push_back(fmt::format("{} {}", n, words));
        rest -= n;
    };
    for (const Ending& ending : kEndings) take(static_cast<int64_t>(kind.*ending.figure), ending.words);
    take(minus(kind.in, kind.got + kind.not_subscribed), "not taken up, reset or stop");
    take(minus(kind.queued + waiting, kind.begun + kind.ignored), "waiting at the stop");
    if (kind.repeats > 0) parts.push_back(fmt::format("{} repeats among the reported", kind.repeats));

    const auto* name = std::ranges::find(kKindNames, id, &KindName::id);
    out.line("  {:>4} {:<16} {:>8} {:>9} {:>11}{}{}", id, name == std::end(kKindNames) ? "" : name->name, kind.in,
             kind.reported, rest, parts.empty() ? "" : "  ", fmt::join(parts, ", "));
}

void write_events(Text& out, const Totals& totals) {
    out.line("  {:<21} {:>8} {:>9} {:>11}  {}", "events", "in", "reported", "difference", "others");
    for (const auto& [id, kind] : totals.kinds)
        if (kind.in > 0) write_kind(out, id, kind, id == kKov ? totals.waiting_completions : 0);
}

// A KOV alert goes to the trace stage twice: for its completion and for its chain.
void write_traces(Text& out, const Totals& totals) {
    const KindFigures kov = totals.of(kKov);
    const uint64_t chains = totals.sum(&KindFigures::host_alerts) + totals.of(kDnsHit).reported +
                            (kov.reported - kov.not_completed) + totals.file_traces;
    const uint64_t asked = kov.begun - kov.no_function + (totals.tracing_off ? 0 : chains);
    const uint64_t succeeded = totals.sum(&KindFigures::succeeded);
    const uint64_t failed = totals.sum(&KindFigures::failed);
    const uint64_t dropped = totals.sum(&KindFigures::dropped);
    const int64_t rest = minus(asked, succeeded + failed + dropped + totals.waiting_traces);
    out.line("  traces: {} asked for{}, {} finished, {} failed, {} dropped, {} waiting at the stop; put off {} times",
             asked, totals.tracing_off ? " (tracing is off)" : "", succeeded, failed, dropped, totals.waiting_traces,
             totals.sum(&KindFigures::retried));
    if (rest != 0) out.line("  traces: DIFFERENCE {}", rest);
}

// Figures that both sides count.
struct Check {
    const char* key;
    uint64_t (*host)(const Totals& totals);
};
uint64_t of_documents(const Totals& totals, std::initializer_list<Figure> figures) {
    const KindFigures ioa = totals.of(kIoaAlert);
    const KindFigures memory = totals.of(kMemoryTrojan);
    uint64_t sum = 0;
    for (const Figure figure : figures) sum += ioa.*figure + memory.*figure;
    return sum;
}
template <Figure figure>
uint64_t sum_of(const Totals& totals) {
    return totals.sum(figure);
}
constexpr Check kChecks[] = {
    {"recvAlarmCount", sum_of<&KindFigures::got>},
    {"eventQueueTotalCount", sum_of<&KindFigures::queued>},
    {"eventQueueOverflowCount", sum_of<&KindFigures::queue_full>},
    {"hotCacheHitCount", sum_of<&KindFigures::hot>},
    {"alertEventFilterCount", sum_of<&KindFigures::repeats>},
    {"traceFailedCount", sum_of<&KindFigures::failed>},
    {"traceDroppedCount", sum_of<&KindFigures::dropped>},
    {"successCount", sum_of<&KindFigures::succeeded>},
    {"sentToMbCount", [](const Totals& t) { return of_documents(t, {&KindFigures::reported}); }},
    {"alertEventTotalCount",
     [](const Totals& t) {
         return of_documents(t, {&KindFigures::reported, &KindFigures::unbuilt, &KindFigures::unsent});
     }},
};

void write_own_statistics(Text& out, const Run& run, const Totals& totals) {
    if (run.reports.count() == 0) return out.line("  the plug-in gave no report");
    constexpr size_t kWidth = 110;
    out.line("the plug-in's own statistics, summed over {} reports:", run.reports.count());
    std::string line;
    for (const auto& [key, value] : run.reports.figures()) {
        const std::string item = fmt::format("  {} {}", key, value);
        if (line.size() + item.size() > kWidth) out.line("{}", std::exchange(line, {}));
        line += item;
    }
    out.line("{}", line);
    bool agree = true;
    for (const Check& check : kChecks) {
        const uint64_t host = check.host(totals);
        const uint64_t own = run.reports.figure(check.key);
        if (host == own) continue;
        agree = false;
        out.line("  {} DISAGREES: {} by the plug-in, {} by the host's count", check.key, own, host);
    }
    if (agree) out.line("  the host's own count agrees");
}

// What should be nothing, and is shown only when it is not.
void write_left_over(Text& out, const Run& run, const Totals& totals) {
    const lummb_counts bus = run.bus->counts();
    if (bus.alive > 0) out.line("  LEFT: {} incoming events were never released", bus.alive);
    if (bus.late > 0) out.line("  WRONG: {} calls on incoming events after their last release", bus.late);
    if (!run.trace_counts) return;
    const zeltrc_counts trace = run.trace_counts->counts();
    const uint64_t kept = totals.sum(&KindFigures::not_completed);
    if (trace.outstanding > kept)
        out.line("  LEFT: {} results of the trace module were not given back", trace.outstanding);
    if (trace.foreign_releases > 0)
        out.line("  WRONG: {} buffers were given to the trace module that are not its own", trace.foreign_releases);
}

}  // namespace

std::string summary(const Run& run) {
    const Totals totals = run.figures.totals();
    const std::chrono::duration<double> took = Figures::Clock::now() - run.begin;
    Text out;
    const char* const how = run.failed             ? "failed"
                            : run.max_wait_passed  ? "ended by --max-wait"
                            : run.stop.requested() ? "stopped by a signal"
                                                   : "done";
    out.line("zelhost: {} after {:.1f} s; {} lines read, {} skipped; log: {} ({} errors, {} warnings)", how,
             took.count(), run.input ? run.input->number() : 0, run.lines_skipped, run.log_place, totals.errors,
             totals.warnings);
    write_events(out, totals);
    const uint64_t expanded = totals.of(kExpand).reported;
    out.line(
        "  given out: {} first reports, {} traces, {} expanded chains, {} duplicate batches, {} memory checks, {} "
        "answers",
        totals.sum(&KindFigures::reported) - expanded, totals.sum(&KindFigures::traces), expanded,
        totals.duplicate_batches, totals.memory_checks, totals.callbacks);
    write_traces(out, totals);
    write_own_statistics(out, run, totals);
    write_left_over(out, run, totals);
    return out.take();
}

}  // namespace zel
