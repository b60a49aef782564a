// The help text of zelhost and of each command.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace zelhost {

// Lays the text out. It begins with the command's example.
class HelpText : public CLI::Formatter {
public:
    std::string make_description(const CLI::App* app) const override;
    // The line of a command in the list of all.
    std::string make_subcommand(const CLI::App* app) const override;
};

}  // namespace zelhost
