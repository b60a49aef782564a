// Turns what was observed about a document into words and places.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zel::check {

struct Observation;

// See zelcheck_finding.
struct Finding {
    std::string reason;
    std::string path;
    uint64_t offset = 0;
    uint64_t size = 1;
};

// How the document went through the plug-in's code.
enum class Way { reported, skipped, not_decoded, not_built, process_ended };

struct Explanation {
    std::optional<Finding> refusal;  // set for the last three ways
    std::vector<Finding> warnings;   // by offset
};

// `text` is the document, whole. `process_end` is what the process would print, for that way.
Explanation explain(std::string_view text, const Observation& seen, Way way, std::string_view process_end);

}  // namespace zel::check
