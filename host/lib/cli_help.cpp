#include "host/lib/cli_help.h"

#include <fmt/format.h>

#include <string_view>

#include "host/lib/cli_tree.h"

namespace zelhost {
namespace {

// Terminals have 80 columns at least.
constexpr size_t kWidth = 80;
// The column at which meanings begin.
constexpr size_t kNameColumn = 26;

// Breaks the text between words; each line after the first begins with `indent` blanks.
std::string wrap(std::string_view text, size_t indent) {
    std::string lines;
    size_t column = indent;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        if (column > indent && column + 1 + word.size() > kWidth) {
            // A word that is longer than a line stands on a line of its own.
            lines += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (column > indent) {
            lines += ' ';
            ++column;
        }
        lines += word;
        column += word.size();
    }
    return lines;
}

// A name, and in the column beside it what it means. A long name has its meaning below it.
std::string row(const std::string& name, const std::string& meaning) {
    std::string line = "  " + name;
    // Two blanks at least stand between a name and its meaning.
    if (line.size() + 2 > kNameColumn) line += "\n";
    const size_t used = line.back() == '\n' ? 0 : line.size();
    return line + std::string(kNameColumn - used, ' ') + wrap(meaning, kNameColumn) + "\n";
}

}  // namespace

// The parser's own text for the name of the program is not used: the tree has it.
std::string HelpText::make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const {
    const auto heading = [this](const std::string& text) { return "\n" + paint_(Tint::bold, text + ":") + "\n"; };
    std::string text;
    // Only a command has an example; the program itself has none.
    if (const auto* const command = dynamic_cast<const CommandApp*>(app))
        text = fmt::format("{} {}\n\n", paint_(Tint::bold, "Example:"), command->example());
    text += description_of(*app) + "\n\n" + paint_(Tint::bold, "Usage:") + " " + usage_of(*app) + "\n";
    if (app->get_parent() == nullptr) {
        text += heading("Commands");
        for (const CommandApp* command : commands_of(*app)) text += row(command->get_name(), command->help_line());
    }
    std::string group;
    // Arguments come in the order of their groups, so a heading is written at each change.
    for (const Argument& argument : arguments_of(*app)) {
        if (argument.group != group) text += heading(argument.group);
        group = argument.group;
        text += row(argument.shown(), argument.help);
    }
    if (!app->get_footer().empty()) text += "\n" + app->get_footer() + "\n";
    text += heading("Exit status");
    for (const ExitStatus& status : exit_statuses_of(*app))
        text += fmt::format("  {}  {}\n", status.code, wrap(status.meaning, 5));
    return text;
}

}  // namespace zelhost
