#include "host/load/queue_peaks.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace zelhost {
namespace {

// To the number behind `name`, if there is one and it is higher.
void raise_to(uint64_t& peak, std::string_view text, std::string_view name) {
    const size_t at = text.find(name);
    uint64_t size = 0;
    // The name may be missing, since not every line has all three sizes.
    if (at != std::string_view::npos) std::from_chars(text.data() + at + name.size(), text.data() + text.size(), size);
    peak = std::max(peak, size);
}

}  // namespace

bool QueuePeaks::line(const LogLine& line) {
    if (line.row == nullptr) return false;
    // The line of an append ends with the size of the queue after it.
    if (line.row->figure == &KindFigures::queued) {
        raise_to(event, line.rest, " : ");
        return true;
    }
    // The line of a refusal has the sizes of all three queues.
    if (line.row->figure != &KindFigures::queue_full) return false;
    raise_to(event, line.rest, "Event queue:");
    raise_to(trc, line.rest, "trc queue:");
    raise_to(delay, line.rest, "delay queue:");
    return true;
}

}  // namespace zelhost
