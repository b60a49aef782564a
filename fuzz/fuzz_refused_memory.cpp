// An alert document on its whole road, while allocations fail. The first byte says how often, the next two which ones.
// What goes out all the same is what would go out with memory; a memory check may lack a text. Afterwards the same
// document fares as if nothing had happened.
#include <algorithm>
#include <string_view>
#include <vector>

#include "failing_memory.h"
#include "fuzz.h"
#include "fuzz_alert.h"
#include "json_mutator.h"
#include "pipeline.h"

const size_t fuzz::head_size = 3;

namespace {

constexpr uint32_t kRates = 13;  // one in 2 to one in 8192

fuzz::Outcome run(std::string_view text) {
    const fuzz::Native native(event_id::ioa_alert, text.data(), text.size());
    const fuzz::Outcome outcome = fuzz::run_event(event_id::ioa_alert, native.incoming());
    fuzz::advance(fuzz::kFilterPeriod);
    return outcome;
}

std::vector<std::string_view> parts(std::string_view text) {
    std::vector<std::string_view> found;
    for (size_t end = 0; end != std::string_view::npos; text.remove_prefix(std::min(end + 1, text.size())))
        found.push_back(text.substr(0, end = text.find('|')));
    return found;
}

// The process is that of the whole check, and each text is the same or empty. Where the check of one event was lost, a
// later event that names the same process makes it, with its own times, confidence and path. A bar within a text parts
// both alike; where such a text is missing there are fewer parts, which says nothing.
bool is_part_of(const fuzz::Sent& check, const fuzz::Sent& whole) {
    constexpr size_t kOfTheEvent[] = {1, 2, 3, 6};
    const auto left = parts(check.bytes);
    const auto right = parts(whole.bytes);
    for (size_t i = 0; left.size() == right.size() && i < left.size(); ++i)
        if (std::ranges::find(kOfTheEvent, i) == std::end(kOfTheEvent) && !left[i].empty() && left[i] != right[i])
            return false;
    return true;
}

bool is_known(const fuzz::Sent& sent, const std::vector<fuzz::Sent>& with_memory) {
    return std::ranges::any_of(with_memory, [&](const fuzz::Sent& known) {
        if (sent.id != known.id || sent.source != known.source) return false;
        if (sent.id == event_id::mem_detect) return is_part_of(sent, known);
        return sent.bytes == known.bytes && (sent.guid.empty() || sent.guid == known.guid);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Bytes input(data, size);
    const uint32_t period = 2u << input.below(kRates);
    const auto seed = input.number<uint16_t>();
    const std::string_view text = input.rest();
    FUZZ_CHECK(Decoded(kSmallest).good);
    if (ends_the_process(text)) return 0;
    const fuzz::Outcome whole = run(text);

    fuzz::Outcome poor;
    {
        const fuzz::FailingMemory failing(period, seed);
        poor = run(text);
    }
    for (const fuzz::Sent& sent : poor.sent) FUZZ_CHECK(is_known(sent, whole.sent));
    FUZZ_CHECK(poor.sent.size() <= whole.sent.size());

    FUZZ_CHECK(Decoded(kSmallest).good);
    FUZZ_CHECK(run(text).sent == whole.sent);
    return 0;
}
