#include "host/load/checks.h"

#include <fmt/format.h>

#include <string_view>

namespace zelhost {
namespace {

// Collects the checks.
class Checks {
public:
    // The left and the right number must be the same.
    void equal(std::string what, int64_t left, int64_t right) {
        list_.push_back({std::move(what), left, right, false});
    }
    // The left number must not be above the right one. It may be any number below.
    void at_most(std::string what, int64_t left, int64_t right) {
        list_.push_back({std::move(what), left, right, true});
    }
    // The value lies between the two limits. It must be equal when they are.
    void between(const std::string& what, int64_t lowest, int64_t value, int64_t highest) {
        if (lowest == highest) return equal(what, value, lowest);
        at_most(what + ", lowest", lowest, value);
        at_most(what + ", highest", value, highest);
    }
    std::vector<Check> take() { return std::move(list_); }

private:
    std::vector<Check> list_;
};

// Nothing is lost between host, bus and plug-in. Every incoming event and every reference is given back.
void check_bus(Checks& checks, const Account& account, const Terms& terms) {
    const Totals& totals = account.totals;
    // The events that the bus accepted and the plug-in never saw.
    int64_t unhandled = 0;
    for (const auto& [id, kind] : totals.kinds) unhandled += not_taken_up(kind);
    checks.equal("accepted by the bus / published by the host", as_signed(account.bus.published),
                 as_signed(totals.sum(&KindFigures::in) - totals.sum(&KindFigures::not_subscribed)));
    // In a reset period the plug-in lets an event go without a line, so the account knows only how many came in that
    // time.
    checks.between("released unhandled in a reset period", 0, unhandled - as_signed(account.bus.discarded),
                   terms.resets ? as_signed(account.delivered_in_resets) : 0);
}

// Each stage hands on what it takes or says why not. A KOV alert that was put off is on no worker, and a stop under
// load discards it there.
void check_stages(Checks& checks, const Account& account, const Terms& terms) {
    for (const auto& [id, kind] : account.totals.kinds) {
        if (kind.in == 0) continue;
        // Nothing waits at the intake: the bus thread hands an event on before it takes the next.
        checks.equal(fmt::format("{}: ends at the intake short", id), at_intake(kind), 0);
        // After a run that has settled the queue is empty. Otherwise a stop may have discarded all
        // that was in it.
        const int64_t discarded = terms.settled ? 0 : as_signed(terms.longest_event_queue);
        checks.between(fmt::format("{}: discarded from the queue", id), 0, in_queue(kind), discarded);
        const int64_t put_off = id == event_id::kov && !terms.settled ? as_signed(kind.retried) : 0;
        checks.between(fmt::format("{}: ends on the alarm worker short", id), 0, on_worker(kind), put_off);
    }
    checks.at_most("events discarded from the queue / longest queue seen", account.left.events,
                   terms.settled ? 0 : as_signed(terms.longest_event_queue));
    // Without a trace module the plug-in cannot complete KOV alerts. These have no trace that could
    // wait.
    const int64_t no_function = as_signed(account.totals.of(event_id::kov).no_function);
    const int64_t named = as_signed(account.totals.waiting_traces);
    if (terms.settled) {
        checks.equal("traces without an end", account.left.traces, 0);
        checks.between("traces waiting that the log names", 0, named, no_function);
    } else {
        checks.at_most("traces waiting that the log names / all that wait", named, account.left.traces + no_function);
    }
}

// Every success gives one result, and every buffer of the trace module goes back to it.
void check_traces(Checks& checks, const Account& account, const Terms& terms) {
    const Totals& totals = account.totals;
    const zeltrc_counts trace = account.trace.value_or(zeltrc_counts{});
    const KindFigures kov = totals.of(event_id::kov);
    // The first report of a completed KOV alert is itself a result of the module.
    const int64_t completed = as_signed(kov.reported) - as_signed(kov.not_completed);
    // On the trace worker no event is in hand: what it could not send belongs to no kind.
    const int64_t results = as_signed(totals.sum(&KindFigures::traces) + totals.file_answers + totals.of(0).unsent);
    const int64_t succeeded = as_signed(totals.sum(&KindFigures::succeeded));
    // A failure that comes with a result is given out without being a success. So there may be more
    // results.
    if (terms.partial_results)
        checks.at_most("successes of the trace stage / results given out", succeeded, completed + results);
    else
        checks.equal("successes of the trace stage / results given out", succeeded, completed + results);
    checks.equal("answers to on-demand traces / results of such", as_signed(totals.answers),
                 as_signed(totals.process_traces + totals.file_answers));
    checks.equal("buffers given to the trace module that are not its own", as_signed(trace.foreign_releases), 0);
    // A reset unloads the module while results are on their way, so what stays is not known.
    if (terms.resets) return;
    const int64_t kept = as_signed(kov.not_completed);
    checks.between("result buffers left, of KOV alerts that were not completed and of events that outlived the module",
                   kept, as_signed(trace.outstanding), kept + as_signed(terms.outlived));
}

// The plug-in's own figures, summed over all reports, are those that the log and the bus show.
void check_reports(Checks& checks, const Account& account) {
    const auto agrees = [&](std::string_view key, int64_t counted) {
        checks.equal(fmt::format("{} / counted from outside", key), as_signed(account.reports.figure(key)), counted);
    };
    const Totals& totals = account.totals;
    for (const CommonFigure& figure : common_figures()) agrees(figure.key, figure.counted(totals));
    // The plug-in counts each attempt, those that were put off included. It does not count the
    // completions of KOV alerts.
    agrees("sentToTrcCount", ended_traces(totals) + as_signed(totals.sum(&KindFigures::retried)) -
                                 as_signed(account.trace.value_or(zeltrc_counts{}).calls[ZELTRC_COMPLETION]));
}

// Without the log the bus and the plug-in's own figures say what there is to know.
void check_without_log(Checks& checks, const Account& account) {
    const Totals& totals = account.totals;
    const auto figure = [&](std::string_view key) { return as_signed(account.reports.figure(key)); };
    checks.equal("accepted by the bus / published by the host", as_signed(account.bus.published),
                 as_signed(totals.sum(&KindFigures::in) - totals.sum(&KindFigures::not_subscribed)));
    checks.equal("events delivered or discarded by the bus / accepted",
                 as_signed(account.bus.delivered + account.bus.discarded), as_signed(account.bus.published));
    checks.equal("recvAlarmCount / events delivered", figure("recvAlarmCount"), as_signed(account.bus.delivered));
    checks.at_most("queued, refused and merged / recvAlarmCount",
                   figure("eventQueueTotalCount") + figure("eventQueueOverflowCount") + figure("hotCacheHitCount"),
                   figure("recvAlarmCount"));
    checks.equal("sentToMbCount / reports of documents seen by the host", figure("sentToMbCount"),
                 // The plug-in counts the reports of alert documents alone. Other reports have no
                 // figure there.
                 as_signed(totals.of(event_id::ioa_alert).reported + totals.of(event_id::memory_trojan).reported));
}

// What the host sees on the bus, and what became of the objects there.
void check_events(Checks& checks, const Account& account) {
    const Totals& totals = account.totals;
    // Each event that the plug-in sends is of one of these four kinds.
    checks.equal("events sent on the bus / seen by the host", as_signed(account.bus.sent),
                 as_signed(totals.sum(&KindFigures::reported) + totals.sum(&KindFigures::traces) +
                           totals.duplicate_batches + totals.memory_checks));
    checks.equal("incoming events never released", as_signed(account.bus.alive), 0);
    checks.equal("calls on incoming events after their end", as_signed(account.bus.late), 0);
    checks.equal("references to the bus's frame left", as_signed(account.bus.frames), 0);
}

}  // namespace

std::vector<Check> check_account(const Account& account, const Terms& terms) {
    Checks checks;
    check_events(checks, account);
    // Only the log tells what a stop has discarded. Without it nothing more can be checked of a run
    // that has not settled.
    if (!account.log) {
        if (terms.settled) check_without_log(checks, account);
        return checks.take();
    }
    check_bus(checks, account, terms);
    check_stages(checks, account, terms);
    check_traces(checks, account, terms);
    // The plug-in's own figures are exact only when no report was collected while threads counted.
    if (terms.settled) check_reports(checks, account);
    return checks.take();
}

std::string failed_text(const std::vector<Check>& checks) {
    std::string text;
    for (const Check& check : checks)
        if (!check.holds()) text += fmt::format("  WRONG: {}: {} / {}\n", check.what, check.left, check.right);
    return text;
}

}  // namespace zelhost
