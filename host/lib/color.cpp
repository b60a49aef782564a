#include "host/lib/color.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>

namespace zelhost {
namespace {

// One row for each tint, in the order of the enumeration.
constexpr std::string_view kCodes[] = {"", "\033[1;31m", "\033[1;33m", "\033[32m", "\033[36m", "\033[2m", "\033[1m"};

// A variable that is set to an empty text does not count.
bool wanted_on(int descriptor) {
    const char* const no_color = getenv("NO_COLOR");
    if (no_color != nullptr && no_color[0] != '\0') return false;
    const char* const terminal = getenv("TERM");
    return isatty(descriptor) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

}  // namespace

Paint::Paint(ColorMode mode, int descriptor)
    : colored_(mode == ColorMode::always || (mode == ColorMode::automatic && wanted_on(descriptor))) {}

std::string Paint::operator()(Tint tint, std::string_view text) const {
    if (!colored_ || tint == Tint::plain || text.empty()) return std::string(text);
    // Each piece ends with the code that takes all tints back.
    std::string painted(kCodes[static_cast<size_t>(tint)]);
    painted += text;
    return painted += "\033[0m";
}

void add_color_option(CLI::App& app, ColorMode& mode) {
    // The word is turned into the mode by the parser itself, which also names the choices.
    app.add_option("--color", mode, "Colours: auto (on a terminal, unless NO_COLOR is set), always or never")
        ->transform(CLI::CheckedTransformer(
            std::vector<std::pair<std::string, ColorMode>>{
                {"auto", ColorMode::automatic}, {"always", ColorMode::always}, {"never", ColorMode::never}},
            CLI::ignore_case))
        ->type_name("WHEN");
}

}  // namespace zelhost
