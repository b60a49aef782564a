#include "host/lib/cli_tree.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>

#include "host/lib/exit_codes.h"

namespace zelhost {
namespace {

// The parser joins an option's type and the words of its checks by colons; an own type may have colons, too. These
// begin the words of a check.
constexpr std::string_view kChecks[] = {":{",        ":value in {", ":FILE",     ":DIR",       ":PATH(",     ":NUMBER",
                                        ":POSITIVE", ":NONNEGAT",   ":INT in [", ":UINT in [", ":FLOAT in ["};

// Types that the parser gives by itself, and the shorter word for them.
struct TypeWord {
    std::string_view type;
    std::string_view word;
};
constexpr TypeWord kTypeWords[] = {{"INT", "N"}, {"UINT", "N"}, {"FLOAT", "N"}};

// The type without the words of the checks.
// The type as pages show it: a word in capitals.
std::string type_of(const CLI::Option& option) {
    std::string type = option.get_type_name();
    size_t end = type.size();
    // The first check ends the type.
    for (const std::string_view check : kChecks) end = std::min(end, type.find(check));
    // A check for a file or a folder says more than the type of a text does.
    const std::string_view check = std::string_view(type).substr(end);
    if (check.starts_with(":FILE") || check.starts_with(":PATH(")) return "FILE";
    if (check.starts_with(":DIR")) return "DIR";
    type.resize(end);
    for (const TypeWord& row : kTypeWords)
        if (type == row.type) return std::string(row.word);
    return type;
}

// A positional argument whose values have no type of their own is known by its name.
// Upper and lower case make no difference in such a name.
Completes completes(const Argument& argument) {
    if (!argument.choices.empty()) return Completes::choices;
    const bool untyped = argument.value.empty() || argument.value == "TEXT";
    std::string word = argument.positional && untyped ? argument.names.front() : argument.value;
    std::ranges::transform(word, word.begin(), [](unsigned char c) { return static_cast<char>(toupper(c)); });
    if (word == "FILE" || word == "FILES" || word == "PATH") return Completes::files;
    return word == "DIR" || word == "FOLDER" ? Completes::folders : Completes::nothing;
}

Argument facts_of(const CLI::Option& option) {
    Argument facts;
    facts.positional = option.get_positional();
    facts.group = facts.positional ? "Arguments" : option.get_group();
    facts.required = option.get_required();
    // Either sign says that the option may be given several times.
    facts.repeats = option.get_expected_max() >= CLI::detail::expected_max_vector_size ||
                    option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
    facts.help = option.get_description();
    std::ranges::replace(facts.help, '\n', ' ');
    for (const std::string& name : option.get_snames()) facts.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) facts.names.push_back("--" + name);
    if (facts.positional) facts.names = {option.get_name(true)};
    // A flag takes no value.
    if (option.get_items_expected_max() > 0) {
        facts.choices = choices_of(option);
        facts.value = facts.choices.empty() ? type_of(option) : fmt::format("{}", fmt::join(facts.choices, "|"));
        facts.delimiter = option.get_delimiter();
        // The dots say that more values may follow the delimiter.
        if (!facts.choices.empty() && facts.delimiter != '\0') facts.value += fmt::format("{}...", facts.delimiter);
    }
    facts.completes = completes(facts);
    if (!option.get_default_str().empty()) facts.help += fmt::format(" (default: {})", option.get_default_str());
    return facts;
}

// Options of an unnamed part of the tree belong to the command around it.
// Options without a group are hidden. The help option comes last and is added by the caller.
void collect(const CLI::App& app, std::vector<Argument>& all) {
    for (const CLI::Option* option : app.get_options())
        if (!option->get_group().empty() && option != app.get_help_ptr()) all.push_back(facts_of(*option));
    for (const CLI::App* part : app.get_subcommands([](const CLI::App* sub) { return sub->get_name().empty(); }))
        collect(*part, all);
}

}  // namespace

std::string Argument::shown() const {
    if (!positional) return fmt::format("{}{}{}", fmt::join(names, ", "), value.empty() ? "" : " ", value);
    const std::string name = names.front() + (repeats ? "..." : "");
    return required ? name : "[" + name + "]";
}

std::vector<Argument> arguments_of(const CLI::App& app) {
    std::vector<Argument> all;
    collect(app, all);
    if (app.get_help_ptr() != nullptr) all.push_back(facts_of(*app.get_help_ptr()));
    // Positional arguments first, then the groups in the order in which they come up.
    // The order of the groups is that of the command's own code.
    std::vector<std::string> groups{"Arguments"};
    for (const Argument& argument : all)
        if (std::ranges::find(groups, argument.group) == groups.end()) groups.push_back(argument.group);
    std::vector<Argument> grouped;
    for (const std::string& group : groups)
        std::ranges::copy_if(all, std::back_inserter(grouped),
                             [&group](const Argument& argument) { return argument.group == group; });
    return grouped;
}

// The words of the check list them: "{a,b}", or "{a->0,b->1}" where they stand for values.
// The parser has no function that lists the choices, but the type names them.
std::vector<std::string> choices_of(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const size_t begin = type.find('{');
    const size_t end = type.find('}', begin);
    if (end == std::string::npos) return {};
    std::vector<std::string> choices = CLI::detail::split(type.substr(begin + 1, end - begin - 1), ',');
    for (std::string& choice : choices) choice.resize(std::min(choice.size(), choice.find("->")));
    return choices;
}

std::vector<const CommandApp*> commands_of(const CLI::App& app) {
    const CLI::App* const root = app.get_parent() == nullptr ? &app : app.get_parent();
    std::vector<const CommandApp*> commands;
    for (const CLI::App* sub : root->get_subcommands([](const CLI::App*) { return true; }))
        if (const auto* command = dynamic_cast<const CommandApp*>(sub)) commands.push_back(command);
    return commands;
}

// Rows without a command hold for all. Those of one code become one text.
std::vector<ExitStatus> exit_statuses_of(const CLI::App& app) {
    const bool program = app.get_parent() == nullptr;
    std::vector<ExitStatus> statuses;
    for (const ExitCodeWords& row : kExitCodes) {
        const std::vector<std::string> commands = CLI::detail::split(row.commands, ' ');
        const bool common = row.commands[0] == '\0';
        if (!program && !common && std::ranges::count(commands, app.get_name()) == 0) continue;
        if (statuses.empty() || statuses.back().code != row.code) statuses.push_back({row.code, ""});
        std::string& meaning = statuses.back().meaning;
        meaning += fmt::format("{}{}", meaning.empty() ? "" : "; ", row.words);
        if (program && !common) meaning += fmt::format(" ({})", fmt::join(commands, ", "));
    }
    return statuses;
}

// The tree itself would also name options, which makes long lines.
std::string usage_of(const CLI::App& app) {
    if (app.get_parent() == nullptr) return app.get_name() + " COMMAND [OPTIONS]";
    std::string usage = fmt::format("{} {} [OPTIONS]", app.get_parent()->get_name(), app.get_name());
    for (const Argument& argument : arguments_of(app))
        if (argument.positional) usage += " " + argument.shown();
    return usage;
}

std::string description_of(const CLI::App& app) {
    std::string text = app.get_description();
    if (!text.empty() && std::string_view(".\n").find(text.back()) == std::string_view::npos) text += '.';
    return text;
}

}  // namespace zelhost
