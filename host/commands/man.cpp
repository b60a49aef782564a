// `zelhost man`: pages about zelhost, made from the parser's own tree.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/commands/commands.h"
#include "host/lib/cli_man.h"
#include "host/lib/cli_tree.h"
#include "host/lib/files.h"

namespace zelhost {
namespace {

// What makes a page of one kind.
using Pages = std::string (*)(const CLI::App& app);

struct ManOptions {
    std::string command;  // empty: the program itself
    Pages pages = man_page;
};

// In the order of their table.
std::vector<std::string> names_of_commands(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CommandApp* command : commands_of(app)) names.push_back(command->get_name());
    return names;
}

}  // namespace

// The commands behind this one join the tree later, so that their names are looked up when they are needed.
Action prepare_man(CLI::App& app) {
    const auto options = std::make_shared<ManOptions>();
    app.footer("zelhost man run | man -l -     shows the page");
    app.add_option("COMMAND", options->command, "Command that the page is about; zelhost itself if not given")
        ->type_name_fn([&app] { return fmt::format("{{{}}}", fmt::join(names_of_commands(app), ",")); })
        ->check([&app](const std::string& name) {
            return std::ranges::count(names_of_commands(app), name) > 0 ? "" : "unknown command " + name;
        });
    app.add_option_function<std::string>(
           "--format",
           [options](const std::string& name) { options->pages = name == "markdown" ? markdown_tables : man_page; },
           "roff for man (default), or markdown for the tables of options and exit statuses")
        ->check(CLI::IsMember({"roff", "markdown"}));
    return [&app, options] {
        const CLI::App& root = *app.get_parent();
        print(options->pages(options->command.empty() ? root : *root.get_subcommand(options->command)));
        return kDone;
    };
}

}  // namespace zelhost
