// zelhost: loads the plug-in from an agent folder as the agent would, feeds it, and shows what it publishes.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <memory>
#include <vector>

#include "host/commands/commands.h"
#include "host/lib/cli_error.h"
#include "host/lib/cli_help.h"
#include "host/lib/cli_tree.h"
#include "host/lib/console.h"
#include "host/lib/exit_codes.h"
#include "host/lib/files.h"

namespace {

using namespace zelhost;

// A command is this row and a file in host/commands/. The table is in the order in which the help text lists it. An
// example works as it stands in the project's root; each is run by a test.
struct Command {
    const char* name;
    const char* help;                  // one sentence without a full stop: the help text lists it
    const char* example;               // a whole command line
    Action (*prepare)(CLI::App& app);  // adds its options; what it returns does the work
};
constexpr Command kCommands[] = {
    {"run", "Play a script of events to the plug-in of an agent folder", "zelhost run --input scenarios/demo.jsonl",
     prepare_run},
    {"replay", "Play a record of a run again, and compare what comes out",
     "zelhost replay scenarios/records/demo.record --compare", prepare_replay},
    {"check", "Tell whether alert documents come through, and where one is wrong", "zelhost check scenarios/demo.jsonl",
     prepare_check},
    {"decode", "Show what serialised messages hold",
     "zelhost decode --pretty --hex 0a0464656d6f28014209180440a8979d83b632", prepare_decode},
    {"graph", "Draw the behaviour chain of a finished trace", "zelhost graph scenarios/demo_chain.jsonl -o chain.html",
     prepare_graph},
    {"explain", "Tell what happened to an alert, by a log or a record",
     "zelhost explain 5ed002b6 scenarios/records/shed.record", prepare_explain},
    {"load", "Publish made-up events at a rate and measure how the plug-in bears it",
     "zelhost load --rate 1000 --seconds 2", prepare_load},
    {"schema", "Print a JSON Schema of the alert document or of the lines that run reads and writes", "zelhost schema",
     prepare_schema},
    {"status", "Show what a start of the plug-in in an agent folder would do", "zelhost status", prepare_status},
    {"watch", "Join what the sinks of many agents have published into one view of each alert",
     "zelhost watch --once nats://127.0.0.1:4222/fleet", prepare_watch},
    {"man", "Print a manual page, of zelhost or of a command", "zelhost man run >zelhost-run.1", prepare_man},
    {"completion", "Print what a shell reads to complete commands and options", "source <(zelhost completion bash)",
     prepare_completion},
};

// The action of the command that was asked for. Throws CLI::ParseError.
Action parse(CLI::App& app, int argc, char** argv) {
    std::vector<std::pair<CLI::App*, Action>> commands;
    for (const Command& command : kCommands) {
        CLI::App& sub = *app.add_subcommand(std::make_shared<CommandApp>(command.name, command.help, command.example));
        sub.formatter(app.get_formatter());
        commands.emplace_back(&sub, command.prepare(sub));
    }
    app.require_subcommand(1);
    app.footer("zelhost COMMAND --help tells about a command and begins with an example.");
    app.parse(argc, argv);
    for (const auto& [sub, action] : commands)
        if (sub->parsed()) return action;
    return {};
}

// Help and version are results, too, and go to standard output: a full disk under it is a failure. Without a command
// the help text is advice, and goes to standard error.
ExitCode run(int argc, char** argv) {
    CLI::App app("Answers questions about the zelreshdl plug-in, one command for each question", "zelhost");
    const int stream = argc > 1 ? STDOUT_FILENO : STDERR_FILENO;
    app.formatter(std::make_shared<HelpText>(Paint(ColorMode::automatic, stream)));
    app.set_version_flag("--version", "zelhost " ZEL_VERSION, "Print the version and exit");
    try {
        return parse(app, argc, argv)();
    } catch (const CLI::CallForHelp&) {
        print(app.help());
        return kDone;
    } catch (const CLI::CallForVersion& version) {
        print(version.what() + std::string("\n"));
        return kDone;
    } catch (const CLI::ParseError& e) {
        if (argc > 1)
            console::message(usage_error(app, e));
        else
            console::block(app.help());
        return kUsage;
    }
}

}  // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);  // a closed output is a failed write
    try {
        return run(argc, argv);
    } catch (const ClosedPipe&) {
        return kDone;
    } catch (const std::exception& e) {
        console::say("{}", e.what());
        return kFailed;
    }
}
