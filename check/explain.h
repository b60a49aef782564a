// Turns what was observed about a document into words and places.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zel::check {

struct Observation;

// Something about one place of a document, with the members of zelcheck_finding. It owns its texts; the C interface
// gives out pointers into them.
struct Finding {
    std::string reason;
    std::string path;
    uint64_t offset = 0;  // of the first byte that is meant, from 0
    uint64_t size = 1;    // in bytes; 0 at the document's end, and where all of it is meant
};

// How the document went through the plug-in's code: a first report went out; no rule was left to report; the decoder
// refused it; no message could be built of it; the agent's process would have ended.
enum class Way { reported, skipped, not_decoded, not_built, process_ended };

struct Explanation {
    std::optional<Finding> refusal;  // set for the last three ways
    std::vector<Finding> warnings;   // by offset
};

// `text` is the document, whole. `process_end` is what the process would print, for that way. The tree in `seen` must
// still be there, since all nodes belong to it. The answer borrows nothing. Throws std::bad_alloc.
Explanation explain(std::string_view text, const Observation& seen, Way way, std::string_view process_end);

}  // namespace zel::check
