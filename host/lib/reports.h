// The plug-in's own statistics, from the reports that the business-point manager collects.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zelhost {

// Sums over all reports of a run: each report sets the plug-in's figures to zero.
// The session guards it by a lock. It has none of its own.
class Reports {
public:
    // `text` is the JSON member that a module reports. Throws Failure when it is none.
    void add(std::string_view text);

    uint64_t count() const { return count_; }
    // By report key, in the order of the report. Costs come after the counts.
    const std::vector<std::pair<std::string, uint64_t>>& figures() const { return figures_; }
    uint64_t figure(std::string_view key) const;

private:
    // Made with 0 when it is new.
    uint64_t& entry(std::string_view key);

    // Some twenty figures, so a search is quick.
    std::vector<std::pair<std::string, uint64_t>> figures_;
    uint64_t count_ = 0;
};

}  // namespace zelhost
