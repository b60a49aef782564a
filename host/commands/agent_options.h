// Options about the agent folder, which several commands have. What they are given must live as long as the parser.
#pragma once

#include <string>
#include <vector>

#include "host/lib/agent_folder.h"

namespace CLI {
class App;
}

namespace zelhost {

// --root DIR.
void add_root_option(CLI::App& app, std::string& root);
// --set FILE:SECTION:KEY=VALUE, and an option of its own for each of the values that are changed most often.
// Each option appends to `settings`. Of two values for one key the last one in the list counts.
void add_settings(CLI::App& app, std::vector<Setting>& settings);

}  // namespace zelhost
