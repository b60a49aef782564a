// `zelhost status`: what a start of the plug-in in an agent folder would do.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "check/zelcheck_host.h"
#include "host/lib/color.h"

namespace zelhost {

// A library that the agent itself opens, before the plug-in opens the others.
// Opened and closed again before the answer is shown. The texts are constants but for the reason.
struct AgentLibrary {
    const char* title;
    const char* path;    // from the agent's root
    std::string reason;  // why it cannot be used; empty when it can

    zelcheck_library row() const;  // as if the plug-in opened it; leads to `reason`
};

// A variable that changes what a start does.
// The value is that of the environment and is not copied.
struct Variable {
    const char* name;
    const char* value;  // null when it is not set
    const char* effect;
};

// All that is known of an agent folder. Borrows what the check library has found.
struct Status {
    std::string root;
    std::vector<AgentLibrary> agent_libraries;
    std::vector<Variable> environment;
    const zelcheck_folder& folder;

    // Why the agent cannot even call the plug-in; null when it can.
    const AgentLibrary* obstacle() const;
    // Both must hold: the agent can call the plug-in, and the plug-in would not refuse.
    bool starts() const { return obstacle() == nullptr && folder.starts != 0; }
};

// What nobody can know without a start.
inline constexpr const char* kOnlyAStartShows[] = {
    "whether the bus gives its frame and attaches the plug-in",
    "whether the trace module starts",
    "whether there are mutexes and threads",
};

// The text lives as long as the process.
const char* level_name(const zelcheck_line& line);

// Throws Failure when whoever opens the file would wait for ever or end.
void try_file(const std::string& path);

// The text ends with a line end.
std::string status_text(const Status& status, const Paint& paint);
// One line each; the second is for a folder that cannot be looked at.
std::string status_json(const Status& status);
std::string status_json(const std::string& root, const std::string& reason);

}  // namespace zelhost
