#include "host/commands/decode_sizes.h"

#include <charconv>
#include <span>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

// A long history is shown by its end, which is the newest part.
constexpr size_t kSizesShown = 6;

// "3374, 812, 5017", or the last of them behind "... 15 earlier".
std::string shown(const std::vector<uint64_t>& history) {
    const size_t left_out = history.size() > kSizesShown ? history.size() - kSizesShown : 0;
    const std::string last = fmt::format("{}", fmt::join(std::span(history).subspan(left_out), ", "));
    return left_out == 0 ? last : fmt::format("... {} earlier, {}", left_out, last);
}

}  // namespace

// The writer ends every line, so a line without its end was cut off, and its number with it.
std::vector<uint64_t> parse_sizes(std::string_view text) {
    std::vector<uint64_t> sizes;
    // One number a line.
    while (!text.empty()) {
        const size_t end = text.find('\n');
        if (end == std::string_view::npos) throw Failure("its last line, {}, is cut off", sizes.size() + 1);
        const std::string_view line = text.substr(0, end);
        const auto [parsed, error] = std::from_chars(line.begin(), line.end(), sizes.emplace_back());
        if (error != std::errc() || parsed != line.end()) throw Failure("line {} is no size", sizes.size());
        text.remove_prefix(end + 1);
    }
    if (sizes.empty()) throw Failure("it is empty");
    return sizes;
}

SizeCheck compare_sizes(uint64_t size, const std::vector<uint64_t>& history) {
    // The capture is written again and again under one number. Only the last copy is there.
    const uint64_t last = history.back();
    const std::string copies =
        fmt::format("{} cop{}: {}", history.size(), history.size() == 1 ? "y" : "ies", shown(history));
    if (size == last) return {true, fmt::format("{} bytes, as its history says ({})", size, copies)};
    return {false, fmt::format("{} bytes, {} {} than the last size of its history ({})", size,
                               size < last ? last - size : size - last, size < last ? "less" : "more", copies)};
}

}  // namespace zelhost
