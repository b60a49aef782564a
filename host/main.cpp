// zelhost: loads the plug-in from an agent folder as the agent would, feeds it, and shows what it publishes.
#include <CLI/CLI.hpp>
#include <csignal>
#include <vector>

#include "host/commands/commands.h"
#include "host/lib/console.h"
#include "host/lib/exit_codes.h"
#include "host/lib/files.h"

namespace {

using namespace zelhost;

// A command is this row and a file in host/commands/. The table is in the order in which the help text lists it.
struct Command {
    const char* name;
    const char* help;
    Action (*prepare)(CLI::App& app);  // adds its options; what it returns does the work
};
constexpr Command kCommands[] = {
    {"run", "Play a script of events to the plug-in of an agent folder", prepare_run},
    {"schema", "Print a JSON Schema of the alert document or of the lines that run reads and writes", prepare_schema},
};

// One sentence for the help texts of all commands, from the one table of codes.
std::string exit_codes() {
    std::string text;
    for (const ExitCodeWords& row : kExitCodes)
        text += fmt::format("{} {} {}", text.empty() ? "Exit codes:" : ",", static_cast<int>(row.code), row.words);
    return text + ".";
}

// What is said of a wrong command line, in one line; it names the help text that would have told.
std::string failure_text(const CLI::App* app, const CLI::Error& error) {
    const auto chosen = app->get_subcommands();
    const std::string command = chosen.empty() ? "" : chosen.front()->get_name() + " ";
    return fmt::format("zelhost: {}; zelhost {}--help lists what there is\n", error.what(), command);
}

// The action of the command that was asked for. Throws CLI::ParseError.
Action parse(CLI::App& app, int argc, char** argv) {
    std::vector<std::pair<CLI::App*, Action>> commands;
    for (const Command& command : kCommands) {
        CLI::App& sub = *app.add_subcommand(command.name, command.help);
        commands.emplace_back(&sub, command.prepare(sub));
        sub.footer(sub.get_footer() + "\n\n" + exit_codes());
    }
    app.require_subcommand(1);
    app.footer(exit_codes() + "\nzelhost COMMAND --help tells about a command.");
    app.failure_message(failure_text);
    app.parse(argc, argv);
    for (const auto& [sub, action] : commands)
        if (sub->parsed()) return action;
    return {};
}

}  // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);  // a closed output is a failed write
    CLI::App app("Host for the zelreshdl plug-in: plays events to it and shows what it publishes.", "zelhost");
    try {
        return parse(app, argc, argv)();
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? kDone : kUsage;
    } catch (const ClosedPipe&) {
        return kDone;
    } catch (const std::exception& e) {
        console::say("{}", e.what());
        return kFailed;
    }
}
