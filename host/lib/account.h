// The account of a session: what became of the events that went in and of the traces that were asked for, from the
// host's own figures. All sums are signed: more ends than beginnings show as less than nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "host/lib/figures.h"
#include "host/lib/reports.h"
#include "standin/lummb/lummb_host.h"
#include "standin/zeltrc/zeltrc_host.h"

namespace zelhost {

// Sums of figures are differences as well, so they are made of signed numbers.
constexpr int64_t as_signed(uint64_t number) { return static_cast<int64_t>(number); }

// Where the events of a kind are that have no end yet.
// Each of these is made of figures that grow at different moments. They are exact only when nothing
// moves.
int64_t not_taken_up(const KindFigures& kind);  // published and never seen by the plug-in: in a reset or at the stop
int64_t at_intake(const KindFigures& kind);     // with the plug-in's call-back
int64_t in_queue(const KindFigures& kind);
int64_t on_worker(const KindFigures& kind);

// First pushes into the trace stage, and what it was asked for, with the completions of KOV alerts.
// A KOV alert counts twice: it is completed before its report and traced after it.
int64_t chains(const Totals& totals);
int64_t asked_traces(const Totals& totals);
int64_t ended_traces(const Totals& totals);

// Events of all kinds that are in the event queue at this moment. While events move, a count is never negative.
uint64_t queued(const Totals& totals);

// The ends of a kind without a report, in words, as far as there are any; `put_off` are completions that wait.
// `words` lives as long as the process.
struct OtherEnd {
    const char* words;
    int64_t count;
};
std::vector<OtherEnd> other_ends(const KindFigures& kind, uint64_t put_off);

// What the plug-in gave out.
struct GivenOut {
    const char* key;  // for programs; the words for people have spaces in the place of underscores
    uint64_t (*counted)(const Totals& totals);
};
std::span<const GivenOut> given_out();

// What has no end. When nothing runs, these are the entries of the queues or, after a stop, what the stop discarded.
struct Left {
    int64_t at_intake = 0;  // taken up by the plug-in's call-back and neither queued nor ended
    int64_t events = 0;     // in the event queue
    int64_t on_worker = 0;  // taken from it and not ended, or sent and not yet done with; KOV alerts apart
    int64_t kov = 0;        // KOV alerts whose completion was put off
    int64_t traces = 0;     // in the trc queue and the delay queue

    bool operator==(const Left&) const = default;
};
Left left_of(const Totals& totals);

// All that a session knows at one moment; exact when nothing runs.
// A copy: it does not change any more, and any thread may read it.
struct Account {
    lummb_counts bus{};
    std::optional<zeltrc_counts> trace;  // none when the trace module does not count
    bool trace_module = false;           // the plug-in has loaded one; it does not in pure mode
    bool log = false;                    // the log was read; without it the totals hold only what crosses the bus
    Totals totals;
    Left left;
    Reports reports;
    uint64_t delivered_in_resets = 0;  // most events that may have been released unhandled in a reset period
};

// A figure of the plug-in's reports that the host counts too.
struct CommonFigure {
    std::string_view key;  // in the report
    int64_t (*counted)(const Totals& totals);
};
// Exact when a run has come to its end and every report was collected at rest.
std::span<const CommonFigure> common_figures();

}  // namespace zelhost
