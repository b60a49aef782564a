#include "host/lib/status_line.h"

#include <fmt/format.h>

namespace zelhost {
namespace {

using namespace std::chrono_literals;

// Rates over a shorter time would jump from line to line.
constexpr auto kWindow = 1s;

}  // namespace

double StatusLine::per_second(uint64_t before, uint64_t after, std::chrono::duration<double> time) {
    return static_cast<double>(after - before) / time.count();
}

// Sheds are what load takes away: events refused by a full queue, alerts filtered while traces pile up, and traces that
// were dropped. Without the log only what crosses the bus is known.
std::string StatusLine::text(Time now, uint64_t line, const Account& account) {
    const Totals& totals = account.totals;
    uint64_t out = 0;
    for (const GivenOut& row : given_out()) out += row.counted(totals);
    const uint64_t shed =
        totals.sum(&KindFigures::queue_full) + totals.sum(&KindFigures::filtered) + totals.sum(&KindFigures::dropped);
    const Sample sample{now, totals.sum(&KindFigures::in), out, shed};
    // The first line has no rates yet.
    if (!base_) base_ = sample;
    if (now - base_->time >= kWindow) {
        in_rate_ = per_second(base_->in, sample.in, now - base_->time);
        out_rate_ = per_second(base_->out, sample.out, now - base_->time);
        shed_rate_ = per_second(base_->shed, sample.shed, now - base_->time);
        base_ = sample;
    }
    std::string text = fmt::format("{} s  in {} ({:.0f}/s)  out {} ({:.0f}/s)",
                                   std::chrono::duration_cast<std::chrono::seconds>(now - begin_).count(), sample.in,
                                   in_rate_, sample.out, out_rate_);
    if (account.log)
        text += fmt::format("  shed {} ({:.0f}/s)  queue {}  traces {}", sample.shed, shed_rate_, queued(totals),
                            totals.waiting_traces);
    text += fmt::format("  bus {}  line {}", account.bus.waiting + account.bus.sending, line);
    return text;
}

}  // namespace zelhost
