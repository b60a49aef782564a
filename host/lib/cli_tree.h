// The parser's tree as help texts, manual pages and completions see it.
#pragma once

#include <CLI/App.hpp>
#include <string>

namespace zelhost {

// A command in the tree, with what the parser has no room for. The parser owns it.
class CommandApp : public CLI::App {
public:
    // `help` is one sentence without a full stop, `example` a whole command line that works as it stands.
    CommandApp(const char* name, const char* help, const char* example)
        : CLI::App(help, name), help_(help), example_(example) {}

    const std::string& help_line() const { return help_; }
    const std::string& example() const { return example_; }

private:
    std::string help_;
    std::string example_;
};

}  // namespace zelhost
