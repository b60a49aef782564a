// What a run came to, for a person: every event accounted for by kind, and the host's figures beside the plug-in's own.
#include <fmt/format.h>

#include <iterator>

#include "event_kinds.h"
#include "outcome.h"
#include "run.h"

namespace zel {
namespace {

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

void write_kind(Text& out, uint32_t id, const KindFigures& kind, uint64_t put_off) {
    std::vector<std::string> parts;
    int64_t rest = as_signed(kind.in) - as_signed(kind.reported);
    const auto take = [&](int64_t n, const char* words) {
        if (n <= 0) return;
        parts.push_back(fmt::format("{} {}", n, words));
        rest -= n;
    };
    for (const Ending& ending : kEndings) take(as_signed(kind.*ending.figure), ending.words);
    take(not_taken_up(kind), "not taken up, reset or stop");
    take(in_queue(kind) + as_signed(put_off), "waiting at the stop");
    if (kind.repeats > 0) parts.push_back(fmt::format("{} repeats among the reported", kind.repeats));

    out.line("  {:>4} {:<16} {:>8} {:>9} {:>11}{}{}", id, kind_name(id), kind.in, kind.reported, rest,
             parts.empty() ? "" : "  ", fmt::join(parts, ", "));
}

void write_events(Text& out, const Totals& totals) {
    out.line("  {:<21} {:>8} {:>9} {:>11}  {}", "events", "in", "reported", "difference", "others");
    for (const auto& [id, kind] : totals.kinds)
        if (kind.in > 0) write_kind(out, id, kind, id == kKov ? totals.waiting_completions : 0);
}

// In pure mode nobody takes what the host asks for itself.
uint64_t waiting_traces(const Run& run, const Totals& totals) {
    const bool nobody = !totals.tracing_off && run.trace_counts && run.trace_counts->counts().calls[ZELTRC_INIT] == 0;
    return totals.waiting_traces + (nobody ? totals.file_traces : 0);
}

void write_traces(Text& out, const Run& run, const Totals& totals) {
    const uint64_t waiting = waiting_traces(run, totals);
    out.line("  traces: {} asked for{}, {} finished, {} failed, {} dropped, {} waiting at the stop; put off {} times",
             asked_traces(totals), totals.tracing_off ? " (tracing is off)" : "", totals.sum(&KindFigures::succeeded),
             totals.sum(&KindFigures::failed), totals.sum(&KindFigures::dropped), waiting,
             totals.sum(&KindFigures::retried));
    const int64_t rest = asked_traces(totals) - ended_traces(totals) - as_signed(waiting);
    if (rest != 0) out.line("  traces: DIFFERENCE {}", rest);
}

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
    const auto compare = [&](std::string_view key, int64_t host) {
        const uint64_t own = run.reports.figure(key);
        if (host == as_signed(own)) return;
        agree = false;
        out.line("  {} DISAGREES: {} by the plug-in, {} by the host's count", key, own, host);
    };
    for (const CommonFigure& figure : common_figures()) compare(figure.key, figure.counted(totals));
    compare("successCount", as_signed(totals.sum(&KindFigures::succeeded)));
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
    write_traces(out, run, totals);
    write_own_statistics(out, run, totals);
    write_left_over(out, run, totals);
    return out.take();
}

}  // namespace zel
