#include "host/lib/cli_error.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

#include "host/lib/cli_tree.h"

namespace zelhost {
namespace {

using Names = std::vector<std::string>;

// How many letters must change, go, come or swap with their neighbour to make one word of the other.
size_t distance(std::string_view from, std::string_view to) {
    // Three rows of the table are enough: the one at work and the two above it.
    std::vector<size_t> before, above, row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= from.size(); ++i) {
        before = std::exchange(above, row);
        row[0] = i;
        for (size_t j = 1; j <= to.size(); ++j) {
            const bool same = from[i - 1] == to[j - 1];
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
    }
    return row.back();
}

std::string_view without_dashes(std::string_view name) {
    return name.substr(std::min(name.size(), name.find_first_not_of('-')));
}

// The name that was most likely meant, as a question: one that begins so, else one that differs in a third of its
// letters at most. Nothing when none is near. Dashes do not count, so that "help" finds "--help".
std::string question(std::string_view given, const Names& names) {
    given = without_dashes(given);
    std::string best;
    // A word of one letter is near to everything, so nothing is suggested for it.
    size_t best_distance = given.size() < 2 ? 0 : std::max<size_t>(given.size() / 3, 1) + 1;
    for (const std::string& name : names) {
        const std::string_view word = without_dashes(name);
        // A name that begins with the given word wins over all others.
        const size_t found = given.size() > 1 && word.starts_with(given) ? 0 : distance(given, word);
        if (found >= best_distance) continue;
        best = name;
        best_distance = found;
    }
    return best.empty() ? "" : fmt::format("; did you mean {}?", best);
}

// What nothing takes: an option, a command, or an argument too many.
// A mistake in the first word is most likely a command, later it is an argument.
std::string unknown(const CLI::App& app, const std::string& given) {
    const bool option = given.size() > 1 && given.front() == '-';
    const bool command = !option && app.get_parent() == nullptr;
    Names names;
    if (command)
        for (const CommandApp* one : commands_of(app)) names.push_back(one->get_name());
    if (option || command)
        for (const Argument& argument : arguments_of(app))
            if (!argument.positional) names.insert(names.end(), argument.names.begin(), argument.names.end());
    // The value behind an equals sign is no part of the name.
    const std::string name = option ? given.substr(0, given.find('=')) : given;
    const char* const what = option ? "unknown option" : command ? "unknown command" : "unexpected argument";
    return fmt::format("{} \"{}\"{}", what, name, question(name, names));
}

// The option that the parser's sentence names.
// The parser tells the option by its name in the sentence alone.
const CLI::Option* option_in(const CLI::App& app, const std::string& sentence) {
    for (const std::string& word : CLI::detail::split(sentence, ' '))
        if (const CLI::Option* option = app.get_option_no_throw(word.substr(0, word.find(':')))) return option;
    return nullptr;
}

// A value that its option does not take.
std::string wrong_value(const CLI::Option& option, const CLI::ParseError& error) {
    const Names choices = choices_of(option);
    // Without choices only numbers are converted.
    for (const std::string& given : option.results()) {
        if (choices.empty() && error.get_name() == "ConversionError")
            return fmt::format("{}: \"{}\" is not a number in its range", option.get_name(), given);
        if (!choices.empty() && std::ranges::find(choices, given) == choices.end())
            return fmt::format("{}: \"{}\" is none of {}{}", option.get_name(), given, fmt::join(choices, ", "),
                               question(given, choices));
    }
    return error.what();
}

std::string wrong_count(const CLI::Option& option) {
    // An option that takes several values may be given several times.
    if (static_cast<int>(option.count()) > option.get_items_expected_max())
        return fmt::format("{} may be given once only", option.get_name());
    return fmt::format("{} needs a value", option.get_name());
}

// The parser stops at the first check that fails, and that is not always the check that tells most: a word that nothing
// takes is the cause of what is missing.
std::string complaint(const CLI::App& root, const CLI::App& app, const CLI::ParseError& error) {
    // The parser leaves the words that nothing takes.
    for (const std::string& word : root.remaining(true))
        if (word != "--") return unknown(app, word);
    const std::string kind = error.get_name();
    const CLI::Option* const option = option_in(app, error.what());
    if (option != nullptr && (kind == "ValidationError" || kind == "ConversionError"))
        return wrong_value(*option, error);
    if (option != nullptr && kind == "ArgumentMismatch") return wrong_count(*option);
    if (option != nullptr && kind == "RequiredError") return fmt::format("{} is missing", option->get_name());
    if (kind == "RequiredError" && root.get_subcommands().empty()) return "a command is missing";
    return error.what();
}

}  // namespace

// The parser has chosen a command as far as it came.
std::string usage_error(const CLI::App& root, const CLI::ParseError& error) {
    const auto chosen = root.get_subcommands();
    const CLI::App& app = chosen.empty() ? root : *chosen.front();
    const std::string command = chosen.empty() ? "" : app.get_name();
    std::string sentence = command + (command.empty() ? "" : ": ") + complaint(root, app, error);
    if (!sentence.ends_with('?'))
        sentence +=
            fmt::format("; {} {}{}--help lists what there is", root.get_name(), command, command.empty() ? "" : " ");
    return sentence;
}

}  // namespace zelhost
