#include "balance.h"

#include <fmt/format.h>

#include <string_view>

#include "event_kinds.h"
#include "outcome.h"

namespace zelhost {
namespace {

void check_bus(std::vector<Check>& checks, const Account& account, const Terms& terms) {
    const Totals& totals = account.totals;
    int64_t unhandled = 0;
    for (const auto& [id, kind] : totals.kinds) unhandled += not_taken_up(kind);
    const int64_t released = unhandled - as_signed(account.bus.discarded);
    checks.push_back({"accepted by the bus / published by the host", as_signed(account.bus.published),
                      as_signed(totals.sum(&KindFigures::in) - totals.sum(&KindFigures::not_subscribed)), false});
    checks.push_back({"released in a reset period / not less than none", 0, released, true});
    checks.push_back({"released in a reset period / delivered while one was open", released,
                      terms.resets ? as_signed(account.delivered_in_resets) : 0, true});
    checks.push_back({"events sent on the bus / seen by the host", as_signed(account.bus.sent),
                      as_signed(totals.sum(&KindFigures::reported) + totals.sum(&KindFigures::traces) +
                                totals.duplicate_batches + totals.memory_checks),
                      false});
    checks.push_back({"incoming events never released", as_signed(account.bus.alive), 0, false});
    checks.push_back({"calls on incoming events after their end", as_signed(account.bus.late), 0, false});
    checks.push_back({"references to the bus's frame left", as_signed(account.bus.frames), 0, false});
}

void check_stages(std::vector<Check>& checks, const Account& account, const Terms& terms) {
    for (const auto& [id, kind] : account.totals.kinds) {
        const auto each = [&, kind_id = id](const char* what, int64_t left, int64_t right, bool at_most) {
            checks.push_back({fmt::format("{}: {}", kind_id, what), left, right, at_most});
        };
        if (kind.in == 0) continue;
        each("ends at the intake short", at_intake(kind), 0, false);
        each("in the queue / not less than none", 0, in_queue(kind), true);
        each("ends on the alarm worker / not more than taken", 0, on_worker(kind), true);
        if (id != kKov || terms.settled) each("ends on the alarm worker short", on_worker(kind), 0, false);
    }
    const Left& left = account.left;
    checks.push_back({"events discarded from the queue / longest queue seen", left.events,
                      terms.settled ? 0 : as_signed(terms.longest_event_queue), true});
    checks.push_back({"traces waiting that the log names / all that wait", as_signed(account.totals.waiting_traces),
                      left.traces + as_signed(account.totals.of(kKov).no_function), true});
    if (terms.settled) checks.push_back({"traces without an end", left.traces, 0, false});
}

void check_traces(std::vector<Check>& checks, const Account& account, const Terms& terms) {
    const Totals& totals = account.totals;
    const KindFigures kov = totals.of(kKov);
    const int64_t completed = as_signed(kov.reported) - as_signed(kov.not_completed);
    // On the trace worker no event is in hand: what it could not send belongs to no kind.
    const int64_t results = as_signed(totals.sum(&KindFigures::traces) + account.file_answers + totals.of(0).unsent);
    checks.push_back({"successes of the trace stage / results given out",
                      as_signed(totals.sum(&KindFigures::succeeded)), completed + results, terms.partial_results});
    checks.push_back({"answers to on-demand traces / results of such", as_signed(account.all_answers),
                      as_signed(account.process_traces + account.file_answers), false});
    checks.push_back({"buffers given to the trace module that are not its own",
                      as_signed(account.trace.foreign_releases), 0, false});
    if (terms.resets) return;
    const int64_t kept = as_signed(kov.not_completed);
    const int64_t left = as_signed(account.trace.outstanding);
    checks.push_back({"of KOV alerts that were not completed / result buffers left", kept, left, true});
    checks.push_back({"result buffers left / of such alerts and of events that outlived the module", left,
                      kept + as_signed(account.outlived), true});
}

}  // namespace

Left left_of(const Totals& totals) {
    Left left;
    for (const auto& [id, kind] : totals.kinds) {
        if (id == 0) continue;
        left.at_intake += at_intake(kind);
        left.events += in_queue(kind);
        (id == kKov ? left.kov : left.on_worker) += on_worker(kind);
        if (id == kIoaAlert || id == kMemoryTrojan)
            left.on_worker += as_signed(kind.reported) - as_signed(kind.host_alerts) - as_signed(kind.untraced);
    }
    left.traces = asked_traces(totals) - ended_traces(totals);
    return left;
}

std::vector<Check> check_account(const Account& account, const Terms& terms) {
    std::vector<Check> checks;
    check_bus(checks, account, terms);
    check_stages(checks, account, terms);
    check_traces(checks, account, terms);
    if (!terms.settled) return checks;
    const auto agrees = [&](std::string_view key, int64_t counted) {
        checks.push_back(
            {fmt::format("{} / counted from outside", key), as_signed(account.reports.figure(key)), counted, false});
    };
    for (const CommonFigure& figure : common_figures()) agrees(figure.key, figure.counted(account.totals));
    agrees("sentToTrcCount", ended_traces(account.totals) + as_signed(account.totals.sum(&KindFigures::retried)) -
                                 as_signed(account.trace.calls[ZELTRC_COMPLETION]));
    return checks;
}

std::string balance_text(const Totals& totals) {
    std::string text;
    int64_t in = 0;
    int64_t difference = 0;
    for (const auto& [id, kind] : totals.kinds) {
        if (kind.in == 0) continue;
        int64_t rest = as_signed(kind.in);
        std::string parts;
        const auto take = [&](int64_t n, const char* words) {
            if (n != 0) parts += fmt::format("{}{} {}", parts.empty() ? "" : " + ", n, words);
            rest -= n;
        };
        take(as_signed(kind.reported), "published");
        for (const Ending& ending : kEndings) take(as_signed(kind.*ending.figure), ending.words);
        take(not_taken_up(kind), "released in a reset or at the stop");
        take(in_queue(kind) + (id == kKov ? on_worker(kind) : 0), "waiting at the stop");
        text += fmt::format("  {:>4} {:<15} {:>8} = {}", id, kind_name(id), kind.in, parts);
        if (kind.repeats > 0) text += fmt::format(" ({} repeats)", kind.repeats);
        text += rest == 0 ? "\n" : fmt::format(", DIFFERENCE {}\n", rest);
        in += as_signed(kind.in);
        difference += rest;
    }
    const Left left = left_of(totals);
    text += fmt::format("  {:>4} {:<15} {:>8}, difference {}\n", "", "in all", in, difference);
    text += fmt::format(
        "       traces          {:>8} = {} succeeded + {} failed + {} dropped + {} waiting at the stop ({} times put "
        "off)\n",
        asked_traces(totals), totals.sum(&KindFigures::succeeded), totals.sum(&KindFigures::failed),
        totals.sum(&KindFigures::dropped), left.traces, totals.sum(&KindFigures::retried));
    return text;
}

std::string failed_text(const std::vector<Check>& checks) {
    std::string text;
    for (const Check& check : checks)
        if (!check.holds()) text += fmt::format("  WRONG: {}: {} / {}\n", check.what, check.left, check.right);
    return text;
}

}  // namespace zelhost
