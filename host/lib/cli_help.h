// The help text of the program and of each command.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "host/lib/color.h"

namespace zelhost {

// Lays the text out. That of a command begins with its example.
// The parser holds it and calls it for --help.
class HelpText : public CLI::FormatterBase {
public:
    explicit HelpText(const Paint& paint) : paint_(paint) {}

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;

private:
    Paint paint_;
};

}  // namespace zelhost
