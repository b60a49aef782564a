// `zelhost decode --sizes`: capture files against their histories of sizes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zelhost {

// The sizes that the side file of a capture names, one for each copy ever written under its number, the last for the
// copy that stands there. Throws Failure when it names none, when a line is no number, or when the last one has no end.
// Sizes are in bytes.
std::vector<uint64_t> parse_sizes(std::string_view text);

// What the comparison of one file has shown.
struct SizeCheck {
    // Whether the file is as large as the last line of its history says.
    bool agrees;
    std::string verdict;  // a sentence without the file's name and without a full stop
};
// What a capture of that size and its history say about each other.
// `history` must not be empty.
SizeCheck compare_sizes(uint64_t size, const std::vector<uint64_t>& history);

}  // namespace zelhost
