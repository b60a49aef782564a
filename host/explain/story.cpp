#include "host/explain/story.h"

#include <iterator>

namespace zelhost {
namespace {

// True for an end by which something is lost that the receiver should have had.
constexpr bool fine = false;
constexpr bool loss = true;

// In the order of the enumeration, since words_of takes the row by its number. A test watches that.
constexpr EndWords kEnds[] = {
    {End::waiting, "still waiting", fine},
    {End::untold, "not told by what was read", fine},
    {End::traced, "reported and traced", fine},
    {End::answered, "answered to the host", fine},
    {End::reported, "reported, without a trace", fine},
    {End::repeat, "reported as a repeat, without a trace", fine},
    {End::untraced, "reported from a container, without a trace", fine},
    {End::hot, "merged by the hot cache", fine},
    {End::trigger_only, "trigger rules only", fine},
    {End::ignored, "ignored", fine},
    {End::no_payload, "without payload", loss},
    {End::queue_full, "shed, queue full", loss},
    {End::not_taken, "refused at intake", loss},
    {End::undecoded, "not decoded", loss},
    {End::filtered, "filtered, busy", loss},
    {End::unbuilt, "message not built", loss},
    {End::unsent, "not sent", loss},
    {End::given_up, "given up", loss},
    {End::no_function, "without trace module", loss},
    {End::shed, "reported, trace shed", loss},
    {End::tries_over, "reported, trace given up after its last try", loss},
    {End::trace_failed, "reported, trace failed", loss},
    {End::trace_dropped, "reported, trace dropped by the trace module", loss},
    {End::trace_lost, "reported, trace lost for want of memory", loss},
    {End::chain_unsent, "reported, chain not sent", loss},
    {End::not_completed, "reported, not completed", loss},
    {End::stopped, "discarded by the stop of the plug-in", loss},
    {End::process_gone, "gone with the process", loss},
};

}  // namespace

std::span<const EndWords> end_words() { return kEnds; }

const EndWords& words_of(End end) { return kEnds[static_cast<size_t>(end)]; }

}  // namespace zelhost
