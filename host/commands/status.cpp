// The command: opens what the agent opens, asks libzelcheck.so for the rest, and shows both.
#include "host/commands/status.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "host/commands/agent_options.h"
#include "host/commands/commands.h"
#include "host/lib/agent_folder.h"
#include "host/lib/console.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"
#include "host/lib/libraries.h"
#include "platform/zel_support.h"

namespace zelhost {
namespace {

namespace fs = std::filesystem;

// What the command line asks for.
struct StatusOptions {
    std::string root;
    bool json = false;
    ColorMode color = ColorMode::automatic;
};

// The reason when the library or one of its functions is missing.
// `record` holds the open library afterwards, or nothing. The answer is empty when all was found.
template <class Record, class... Visibility>
std::string try_open(std::unique_ptr<Record>& record, const fs::path& path, Visibility... visibility) {
    // A library that would end the process is tried in a child first.
    try_file(path.string());
    try {
        record.reset(new Record{Library(path, visibility...)});
        return {};
    } catch (const Failure& e) {
        return e.what();
    }
}

// Variables of the stand-in logger and the agent's id.
std::vector<Variable> environment() {
    const auto row = [](const char* name, const char* set, const char* unset) {
        const char* const value = getenv(name);
        return Variable{name, value, value != nullptr ? set : unset};
    };
    return {
        row("agentid", "agent id of messages and reports", "messages carry \"0\"; set it as the agent does"),
        row("ZEL_LOG_FILE", "the stand-in logger writes there", "the stand-in logger writes to standard error"),
        row("ZEL_LOG_LEVEL", "error, warn, info or debug; anything else is info", "info"),
    };
}

// Ends what the check library has made.
using Folder = std::unique_ptr<const zelcheck_folder, decltype(&zelcheck_folder_close)>;

// The check library calls `trial` before it opens a file. A reason ends the look.
Folder look_at(const fs::path& root) {
    std::string reason;
    const auto trial = [](void* context, const char* path) -> const char* {
        // The text has to live until the call has returned.
        auto& why_not = *static_cast<std::string*>(context);
        try {
            try_file(path);
            return nullptr;
        } catch (const Failure& e) {
            why_not = e.what();
            return why_not.c_str();
        }
    };
    const zelcheck_folder* folder = nullptr;
    if (zelcheck_folder_open(root.c_str(), trial, &reason, &folder) != 0) {
        if (reason.empty()) throw std::bad_alloc();
        throw Failure("{}", reason);
    }
    return Folder(folder, zelcheck_folder_close);
}

// The text and the exit status that goes with it.
struct Answer {
    std::string text;
    ExitCode code;
};

// The support library is opened first and for all, as by a session, so that the other libraries bind to it.
// The libraries stay open until the answer is made.
Answer look(const fs::path& root, const StatusOptions& options) {
    // A folder that cannot be looked at is told by its own reason.
    std::error_code error;
    if (!fs::is_directory(root, error))
        throw Failure("{} is no folder; name an agent folder with --root", root.string());
    const char* const support_path = "lib/liblumutil.so";
    const char* const plugin_path = "reshdl/bin/libzelreshdl.so";
    std::unique_ptr<Support> support;
    std::unique_ptr<Plugin> plugin;
    // The agent's own libraries in the order in which it opens them.
    std::vector<AgentLibrary> libraries;
    libraries.push_back({"support functions", support_path, try_open(support, root / support_path, RTLD_GLOBAL)});
    libraries.push_back({"plug-in", plugin_path, try_open(plugin, root / plugin_path)});
    const Folder folder = look_at(root);
    const Status status{root.string(), std::move(libraries), environment(), *folder};
    return {options.json ? status_json(status) : status_text(status, Paint(options.color, STDOUT_FILENO)),
            status.starts() ? kDone : kFailed};
}

// A program gets an object in any case.
// Without --json the failure goes on to the main function.
Answer look_or_say_why_not(const StatusOptions& options) {
    const fs::path root = agent_root(options.root);
    try {
        return look(root, options);
    } catch (const Failure& e) {
        if (!options.json) throw;
        console::message(e.what());
        return {status_json(root.string(), e.what()), kFailed};
    }
}

// The answer is written in one piece.
ExitCode show_status(const StatusOptions& options) {
    const Answer answer = look_or_say_why_not(options);
    OutputFile output("-");
    output.write(answer.text);
    output.flush();
    return answer.code;
}

}  // namespace

// The functions of these libraries are the agent's to look up.
// The pointers lead into this object, which must outlive the row.
zelcheck_library AgentLibrary::row() const {
    const bool complete = reason.empty();
    return {title, path, 1, 1, complete, complete ? nullptr : reason.c_str(), "the agent opens it", nullptr, 0};
}

// The first library that cannot be used is told. Later ones may fail because of it.
const AgentLibrary* Status::obstacle() const {
    const auto found =
        std::ranges::find_if(agent_libraries, [](const auto& library) { return !library.reason.empty(); });
    return found == agent_libraries.end() ? nullptr : &*found;
}

const char* level_name(const zelcheck_line& line) { return line.level == ZEL_LOG_ERROR ? "ERROR" : "WARN"; }

Action prepare_status(CLI::App& app) {
    const auto options = std::make_shared<StatusOptions>();
    app.footer(R"(It shows the libraries and their functions, the settings and where each comes
from, the mode and the events, the flag files and the environment. Nothing is
started and nothing is written. When a start would fail, the log lines that
would say so come first, and the exit status is 1.)");
    add_root_option(app, options->root);
    app.add_flag("--json", options->json, "One JSON object on one line, for programs");
    add_color_option(app, options->color);
    return [options] { return show_status(*options); };
}

}  // namespace zelhost
