// The commands of zelhost. Each has a file of its own in this folder and a row in the table of host/main.cpp.
#pragma once

#include <functional>

#include "host/lib/exit_codes.h"

namespace CLI {
class App;
}

namespace zelhost {

// Carries a command out, once its options are parsed.
// Runs on the main thread. It may throw Failure, which the main function says on standard error.
using Action = std::function<ExitCode()>;

// Each adds the options and the help text of its command to `app` and returns the action, which owns the options.
// The parser owns `app`, which lives as long as the action.
Action prepare_completion(CLI::App& app);
Action prepare_man(CLI::App& app);
Action prepare_load(CLI::App& app);
Action prepare_graph(CLI::App& app);
Action prepare_run(CLI::App& app);
Action prepare_replay(CLI::App& app);
Action prepare_decode(CLI::App& app);
Action prepare_check(CLI::App& app);
Action prepare_explain(CLI::App& app);
Action prepare_status(CLI::App& app);
Action prepare_schema(CLI::App& app);
Action prepare_watch(CLI::App& app);

}  // namespace zelhost
