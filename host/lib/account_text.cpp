#include "host/lib/account_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "host/lib/event_names.h"

namespace zelhost {
namespace {

// Lines under construction.
// Ends each line by itself, so that no caller forgets it.
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

// What came in, minus all ends that are named, is the difference.
void write_kind(Text& out, uint32_t id, const KindFigures& kind, uint64_t put_off) {
    std::vector<std::string> parts;
    int64_t rest = as_signed(kind.in) - as_signed(kind.reported);
    for (const OtherEnd& end : other_ends(kind, put_off)) {
        parts.push_back(fmt::format("{} {}", end.count, end.words));
        rest -= end.count;
    }
    if (kind.repeats > 0) parts.push_back(fmt::format("{} repeats among the reported", kind.repeats));

    out.line("  {:>4} {:<16} {:>8} {:>9} {:>11}{}{}", id, event_name(id), kind.in, kind.reported, rest,
             parts.empty() ? "" : "  ", fmt::join(parts, ", "));
}

// Only the kinds that the host published. Kind 0 holds lines that belong to no event.
void write_events(Text& out, const Totals& totals) {
    out.line("  {:<21} {:>8} {:>9} {:>11}  {}", "events", "in", "reported", "difference", "others");
    for (const auto& [id, kind] : totals.kinds)
        if (kind.in > 0) write_kind(out, id, kind, id == event_id::kov ? totals.waiting_completions : 0);
}

// Without the log nobody knows why an event was not reported.
void write_events_of_the_bus(Text& out, const Totals& totals) {
    out.line("  {:<21} {:>8} {:>9}", "events", "in", "reported");
    for (const auto& [id, kind] : totals.kinds)
        if (kind.in > 0) out.line("  {:>4} {:<16} {:>8} {:>9}", id, event_name(id), kind.in, kind.reported);
}

// In pure mode nobody takes what the host asks for itself.
uint64_t named_waiting(const Account& account) {
    const Totals& totals = account.totals;
    // A file trace of the host stays in the trc queue when no trace module takes it.
    const bool nobody = !totals.tracing_off && !account.trace_module;
    return totals.waiting_traces + (nobody ? totals.file_traces : 0);
}

// Every trace that was asked for is finished, failed, dropped or waiting.
void write_traces(Text& out, const Account& account, End end) {
    const Totals& totals = account.totals;
    // After a stop under load the two are the same by definition. After a quiet end the log names
    // what waits.
    const int64_t open = asked_traces(totals) - ended_traces(totals);
    const int64_t waiting = end == End::quiet ? as_signed(named_waiting(account)) : open;
    out.line("  traces: {} asked for{}, {} finished, {} failed, {} dropped, {} waiting at the stop; put off {} times",
             asked_traces(totals), totals.tracing_off ? " (tracing is off)" : "", totals.sum(&KindFigures::succeeded),
             totals.sum(&KindFigures::failed), totals.sum(&KindFigures::dropped), waiting,
             totals.sum(&KindFigures::retried));
    if (open != waiting) out.line("  traces: DIFFERENCE {}", open - waiting);
}

// Whether the host's own count says the same as the plug-in's figures.
// Both count the same things from two sides, so a difference is a fault of one of them.
void compare_statistics(Text& out, const Account& account) {
    bool agree = true;
    const auto compare = [&](std::string_view key, int64_t host) {
        const uint64_t own = account.reports.figure(key);
        // Only a difference is worth a line. Agreement takes one line for all figures.
        if (host == as_signed(own)) return;
        agree = false;
        out.line("  {} DISAGREES: {} by the plug-in, {} by the host's count", key, own, host);
    };
    for (const CommonFigure& figure : common_figures()) compare(figure.key, figure.counted(account.totals));
    compare("successCount", as_signed(account.totals.sum(&KindFigures::succeeded)));
    if (agree) out.line("  the host's own count agrees");
}

}  // namespace

std::string account_text(const Account& account, End end) {
    const Totals& totals = account.totals;
    Text out;
    account.log ? write_events(out, totals) : write_events_of_the_bus(out, totals);
    std::vector<std::string> parts;
    for (const GivenOut& row : given_out()) {
        std::string words = row.key;
        std::ranges::replace(words, '_', ' ');
        // People read the key with spaces in it.
        parts.push_back(fmt::format("{} {}", row.counted(totals), words));
    }
    out.line("  given out: {}", fmt::join(parts, ", "));
    if (account.log) write_traces(out, account, end);
    return out.take();
}

// In the order of the plug-in's report, wrapped to the width of a terminal.
std::string statistics_text(const Account& account) {
    Text out;
    if (account.reports.count() == 0) {
        out.line("  the plug-in gave no report");
        return out.take();
    }
    constexpr size_t kWidth = 110;
    out.line("the plug-in's own statistics, summed over {} reports:", account.reports.count());
    std::string line;
    for (const auto& [key, value] : account.reports.figures()) {
        const std::string item = fmt::format("  {} {}", key, value);
        // The line is full. What it has goes out before the next figure is added.
        if (line.size() + item.size() > kWidth) out.line("{}", std::exchange(line, {}));
        line += item;
    }
    out.line("{}", line);
    if (account.log) compare_statistics(out, account);
    return out.take();
}

// The account of events says what became of them; this says what became of the objects that carried them.
std::string leftover_text(const Account& account) {
    Text out;
    const lummb_counts& bus = account.bus;
    if (bus.alive > 0) out.line("  LEFT: {} incoming events were never released", bus.alive);
    if (bus.late > 0) out.line("  WRONG: {} calls on incoming events after their last release", bus.late);
    if (!account.trace) return out.take();
    // The plug-in keeps the result of a KOV alert whose completion was no success; only the log tells how many.
    const uint64_t kept = account.totals.sum(&KindFigures::not_completed);
    if (account.log && account.trace->outstanding > kept)
        out.line("  LEFT: {} results of the trace module were not given back", account.trace->outstanding);
    if (account.trace->foreign_releases > 0)
        out.line("  WRONG: {} buffers were given to the trace module that are not its own",
                 account.trace->foreign_releases);
    return out.take();
}

}  // namespace zelhost
