#include "host/lib/status_line.h"

#include <fmt/format.h>

namespace zelhost {
namespace {

using namespace std::chrono_literals;

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
    const uint64_t full = totals.sum(&KindFigures::queue_full), filtered = totals.sum(&KindFigures::filtered),
                   dropped = totals.sum(&KindFigures::dropped);
    const Sample sample{now, totals.sum(&KindFigures::in), out, full + filtered + dropped};
    if (!base_) base_ = sample;
    if (now - base_->time >= kWindow) {
        in_rate_ = per_second(base_->in, sample.in, now - base_->time);
        out_rate_ = per_second(base_->out, sample.out, now - base_->time);
        shed_rate_ = per_second(base_->shed, sample.shed, now - base_->time);
        base_ = sample;
    }
    std::string text =
        fmt::format("{} s, line {} | in {} ({:.0f}/s) | out {} ({:.0f}/s) | bus {}",
                    std::chrono::duration_cast<std::chrono::seconds>(now - begin_).count(), line, sample.in, in_rate_,
                    sample.out, out_rate_, account.bus.waiting + account.bus.sending);
    if (account.log)
        text += fmt::format(" | queue {} | traces waiting {} | shed {} ({:.0f}/s): queue full {}, filtered {}, traces {}",
                            queued(totals), totals.waiting_traces, sample.shed, shed_rate_, full, filtered, dropped);
    return text;
}

}  // namespace zelhost
