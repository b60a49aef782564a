#include "host/lib/cli_man.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <string_view>

#include "host/lib/cli_tree.h"

namespace zelhost {
namespace {

// What roff would take for its own, and how it is written.
struct Escape {
    char character;
    std::string_view written;
};
constexpr Escape kEscapes[] = {{'\\', "\\e"},  {'-', "\\-"},   {'\'', "\\(aq"}, {'"', "\\(dq"},
                               {'`', "\\(ga"}, {'^', "\\(ha"}, {'~', "\\(ti"}};

// A line that begins with a full stop would be a command.
std::string escaped(std::string_view text) {
    std::string roff;
    for (const char c : text) {
        const auto* const row = std::ranges::find(kEscapes, c, &Escape::character);
        // The mark has no width. It only takes the full stop from the beginning of the line.
        if (c == '.' && (roff.empty() || roff.back() == '\n')) roff += "\\&";
        if (row == std::end(kEscapes))
            roff += c;
        else
            roff += row->written;
    }
    return roff;
}

std::string bold(std::string_view text) { return "\\fB" + escaped(text) + "\\fR"; }

std::string italic(std::string_view text) { return "\\fI" + escaped(text) + "\\fR"; }

std::string as_it_stands(std::string_view text) { return ".nf\n" + escaped(text) + "\n.fi\n"; }

// Paragraphs of text, with an empty line between two. One with an indented line is laid out by hand and keeps its
// lines.
std::string paragraphs(std::string_view text) {
    std::string roff;
    // Several empty lines count as one.
    for (;;) {
        text.remove_prefix(std::min(text.size(), text.find_first_not_of('\n')));
        if (text.empty()) return roff;
        const size_t end = std::min(text.size(), text.find("\n\n"));
        std::string_view paragraph = text.substr(0, end);
        text.remove_prefix(end);
        if (paragraph.back() == '\n') paragraph.remove_suffix(1);
        // An indented line is the sign of a list or of an example.
        const bool by_hand = paragraph.find("\n ") != std::string_view::npos;
        if (!roff.empty()) roff += ".PP\n";
        roff += by_hand ? as_it_stands(paragraph) : escaped(paragraph) + "\n";
    }
}

// "zelhost-run", as man(1) knows the page.
std::string page_name(const CLI::App& app) {
    return app.get_parent() == nullptr ? app.get_name() : app.get_parent()->get_name() + "-" + app.get_name();
}

// Names are bold, what stands for a value is italic; of choices, each is written as it stands.
// Choices are what is typed, so they are not set apart.
std::string shown(const Argument& argument) {
    if (argument.positional) return italic(argument.shown());
    std::string text;
    for (const std::string& name : argument.names) text += (text.empty() ? "" : ", ") + bold(name);
    if (argument.value.empty()) return text;
    return text + " " + (argument.choices.empty() ? italic(argument.value) : escaped(argument.value));
}

std::string synopsis(const CLI::App& app) {
    if (app.get_parent() == nullptr)
        return bold(app.get_name()) + " " + italic("COMMAND") + " [" + italic("OPTIONS") + "]";
    std::string line = bold(app.get_parent()->get_name() + " " + app.get_name()) + " [" + italic("OPTIONS") + "]";
    for (const Argument& argument : arguments_of(app))
        if (argument.positional) line += " " + italic(argument.shown());
    return line;
}

// The first word of a sentence in the middle of a line.
// An abbreviation, such as two capitals at the beginning, stays as it is.
std::string lower_first(std::string text) {
    if (text.size() > 1 && islower(static_cast<unsigned char>(text[1])) != 0)
        text[0] = static_cast<char>(tolower(static_cast<unsigned char>(text[0])));
    return text;
}

std::string item(const std::string& tag, const std::string& text) {
    return ".TP\n" + tag + "\n" + escaped(text) + "\n";
}

// A bar would end the cell; angle brackets would be taken for a tag.
std::string cell(std::string_view text) {
    std::string markdown;
    for (const char c : text) {
        // Only these two characters mean something in a cell.
        if (c == '|') markdown += '\\';
        markdown += c == '<' ? "&lt;" : std::string(1, c);
    }
    return markdown;
}

// Within code a bar still ends the cell.
std::string code_cell(const std::string& text) {
    std::string markdown = "`";
    for (const char c : text) markdown += c == '|' ? "\\|" : std::string(1, c);
    return markdown + "`";
}

}  // namespace

std::string man_page(const CLI::App& app) {
    const auto* const command = dynamic_cast<const CommandApp*>(&app);
    const CLI::App& root = command == nullptr ? app : *app.get_parent();
    std::string title = page_name(app);
    // Titles of manual pages are written in capitals.
    for (char& c : title) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    std::string page = ".\\\" Made from the parser's own options by tools/update_docs.\n";
    page += fmt::format(".TH \"{}\" 1 \"\" \"{}\" \"{} manual\"\n", escaped(title), root.version(), root.get_name());
    page += fmt::format(".SH NAME\n{} \\- {}\n", escaped(page_name(app)),
                        escaped(lower_first(command == nullptr ? app.get_description() : command->help_line())));
    page += ".SH SYNOPSIS\n" + synopsis(app) + "\n";
    page += ".SH DESCRIPTION\n" + paragraphs(description_of(app) + "\n\n" + app.get_footer());
    if (command == nullptr) {
        page += ".SH COMMANDS\n";
        for (const CommandApp* one : commands_of(app)) page += item(bold(one->get_name()), one->help_line());
    }
    page += ".SH OPTIONS\n";
    for (const Argument& argument : arguments_of(app)) page += item(shown(argument), argument.help);
    page += ".SH \"EXIT STATUS\"\n";
    for (const ExitStatus& status : exit_statuses_of(app))
        page += item(bold(std::to_string(status.code)), status.meaning);
    if (command != nullptr) page += ".SH EXAMPLES\n" + as_it_stands(command->example());
    page += ".SH \"SEE ALSO\"\n";
    // A page of a command refers to that of the program, and that page to all commands.
    if (command != nullptr) return page + ".BR " + escaped(root.get_name()) + " (1)\n";
    for (const CommandApp* one : commands_of(app))
        page += fmt::format(".BR {} (1){}\n", escaped(page_name(*one)), one == commands_of(app).back() ? "" : ",");
    return page;
}

std::string markdown_tables(const CLI::App& app) {
    const bool program = app.get_parent() == nullptr;
    std::string text = program ? "| Command | What it does |\n|---|---|\n" : "| Option | Meaning |\n|---|---|\n";
    if (program)
        for (const CommandApp* one : commands_of(app))
            text += fmt::format("| [`{0}`](#{0}) | {1} |\n", one->get_name(), cell(one->help_line()));
    else
        for (const Argument& argument : arguments_of(app))
            text += fmt::format("| {} | {} |\n", code_cell(argument.shown()), cell(argument.help));
    text += "\n| Exit status | Meaning |\n|---|---|\n";
    for (const ExitStatus& status : exit_statuses_of(app))
        text += fmt::format("| {} | {} |\n", status.code, cell(status.meaning));
    return text;
}

}  // namespace zelhost
