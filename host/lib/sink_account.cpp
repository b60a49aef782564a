#include "host/lib/sink_account.h"

#include <fmt/format.h>

namespace zelhost {

int64_t SinkAccount::difference() const {
    // Every end and every place is counted once. The rows with a reason are the ends by shedding.
    uint64_t ends = acknowledged + refused + in_memory + buffered;
    for (const SinkFigure& figure : kSinkFigures)
        if (figure.shed != nullptr) ends += this->*figure.value;
    return static_cast<int64_t>(left_before + handed_over) - static_cast<int64_t>(ends);
}

std::string sink_text(const SinkAccount& account) {
    std::string text = fmt::format("  sink: {} handed over, {} from earlier runs; {} acknowledged", account.handed_over,
                                   account.left_before, account.acknowledged);
    if (account.known > 0) text += fmt::format(" ({} of them known already)", account.known);
    text += fmt::format(", {} refused", account.refused);
    for (const SinkFigure& figure : kSinkFigures)
        if (figure.shed != nullptr && account.*figure.value > 0)
            text += fmt::format(", {} shed ({})", account.*figure.value, figure.shed);
    text += fmt::format("\n  sink: {} went through the buffer; {} are left in it, {:.1f} MB, the oldest {:.0f} s old\n",
                        account.spilled, account.buffered, static_cast<double>(account.buffer_bytes) / 1e6,
                        account.oldest_seconds);
    if (account.difference() != 0) text += fmt::format("  sink: DIFFERENCE {}\n", account.difference());
    return text;
}

}  // namespace zelhost
