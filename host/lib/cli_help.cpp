#include "host/lib/cli_help.h"

#include <fmt/format.h>

#include "host/lib/cli_tree.h"

namespace zelhost {

std::string HelpText::make_description(const CLI::App* app) const {
    const auto* const command = dynamic_cast<const CommandApp*>(app);
    return (command == nullptr ? "" : fmt::format("Example: {}\n\n", command->example())) + app->get_description() +
           "\n\n";
}

std::string HelpText::make_subcommand(const CLI::App* app) const {
    const auto* const command = dynamic_cast<const CommandApp*>(app);
    return fmt::format("  {:<14}{}\n", app->get_name(),
                       command == nullptr ? app->get_description() : command->help_line());
}

}  // namespace zelhost
