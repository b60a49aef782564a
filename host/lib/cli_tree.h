// The parser's tree as help texts, manual pages and completions see it: they all read these facts, and so agree with
// the parser and with each other.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

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
    // Both texts are copies, so the arguments of the constructor may be temporary.
    std::string help_;
    std::string example_;
};

// What a shell can offer for a value.
enum class Completes { nothing, files, folders, choices };

// An option, or a positional argument.
// What pages say of it. A copy that does not depend on the parser any more.
struct Argument {
    std::string group;               // the heading above it
    std::vector<std::string> names;  // "-h", "--help"; a positional argument has its one name
    std::string value;               // as pages show it: "FILE", "auto|always|never"; empty for a flag
    std::vector<std::string> choices;
    Completes completes = Completes::nothing;
    bool positional = false;
    bool required = false;
    bool repeats = false;
    char delimiter = '\0';  // between values that are given as one word
    std::string help;

    // "-h, --help", "--root DIR", "[FILE...]".
    std::string shown() const;
};

// Those of a command or of the program itself that are not hidden: positional arguments, then options by their groups.
std::vector<Argument> arguments_of(const CLI::App& app);

// The values that an option takes when they can be listed, else none.
std::vector<std::string> choices_of(const CLI::Option& option);

// All commands of the program that `app` belongs to, in the order of their table.
// The pointers are valid as long as the tree.
std::vector<const CommandApp*> commands_of(const CLI::App& app);

// An exit status and all that it means for a command; for the program itself each meaning names the command that it is
// of.
struct ExitStatus {
    int code;
    std::string meaning;
};
std::vector<ExitStatus> exit_statuses_of(const CLI::App& app);

// "zelhost run [OPTIONS] FILE...".
std::string usage_of(const CLI::App& app);

// What the command does, as sentences.
std::string description_of(const CLI::App& app);

}  // namespace zelhost
