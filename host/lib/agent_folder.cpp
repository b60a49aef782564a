#include "host/lib/agent_folder.h"

#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "host/lib/console.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"

namespace zelhost {
namespace {

namespace fs = std::filesystem;

// The settings files of an agent, by the names that people give them on the command line.
struct IniFile {
    const char* name;
    const char* path;  // from the agent's root
};
// These are the files that zelhost can set values in, and that a record keeps.
constexpr IniFile kIniFiles[] = {
    {"zelreshdl", "reshdl/config/zelreshdl.ini"},
    {"zeltrc", "reshdl/config/zeltrc.ini"},
    {"zel_pure_mode", "config/zel_pure_mode.ini"},
};

// Not an ini file, and read by the plug-in alone.
constexpr const char* kAgentFile = "config/agent_cfg.json";

std::vector<const char*> settings_paths() {
    std::vector<const char*> paths{kAgentFile};
    for (const IniFile& file : kIniFiles) paths.push_back(file.path);
    return paths;
}

// Null for a name that is none of these.
const IniFile* find_ini_file(std::string_view name) {
    const auto found = std::ranges::find(kIniFiles, name, &IniFile::name);
    return found == std::end(kIniFiles) ? nullptr : found;
}

// Makes the folders above the file, because an agent folder may lack one. Throws Failure.
void write_file(const fs::path& path, const std::string& text, std::ios::openmode mode = std::ios::trunc) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::out | mode);
    out << text;
    if (!out.flush()) throw Failure("cannot write {}: {}", path.string(), strerror(errno));
}

// Appends a section of its own: the last of several values counts.
void write_setting(const fs::path& path, const Setting& setting) {
    write_file(path, fmt::format("\n[{}]\n{}={}\n", setting.section, setting.key, setting.value), std::ios::app);
}

}  // namespace

// zelhost stands in the bin folder of an agent.
fs::path agent_root(const std::string& root) {
    // The link of the running program gives its place, whatever its name on the command line was.
    if (root.empty()) return fs::read_symlink("/proc/self/exe").parent_path().parent_path();
    std::error_code error;
    return fs::absolute(root, error);
}

// A value may hold any character but a line end; file, section and key end at the first colon or equals sign.
Setting parse_setting(const std::string& text) {
    // Three separators are looked for one after the other, from the left.
    const size_t first = text.find(':');
    const size_t second = first == std::string::npos ? first : text.find(':', first + 1);
    const size_t equals = second == std::string::npos ? second : text.find('=', second + 1);
    if (equals == std::string::npos || text.find('\n') != std::string::npos)
        throw Failure("\"{}\" is not of the form FILE:SECTION:KEY=VALUE", text);
    Setting setting{text.substr(0, first), text.substr(first + 1, second - first - 1),
                    text.substr(second + 1, equals - second - 1), text.substr(equals + 1)};
    if (find_ini_file(setting.file) == nullptr)
        throw Failure("\"{}\" is no settings file; known: zelreshdl, zeltrc, zel_pure_mode", setting.file);
    return setting;
}

AgentFolder::AgentFolder(const std::string& root, const std::vector<Setting>& settings) {
    find(root);
    // Without a setting the folder is used as it is, and nothing is copied.
    if (settings.empty()) return;
    copy();
    for (const Setting& setting : settings) write_setting(root_ / find_ini_file(setting.file)->path, setting);
}

// The files of a record replace those of the folder. A file that the record does not have must not
// be there either.
AgentFolder::AgentFolder(const std::string& root, const SettingsFiles& files) {
    find(root);
    copy();
    for (const char* path : settings_paths()) {
        const auto file = files.find(path);
        if (file == files.end())
            fs::remove(root_ / path);
        else
            write_file(root_ / path, file->second);
    }
}

// The plug-in is the one file without which nothing works; other libraries are missed when they are opened.
void AgentFolder::find(const std::string& root) {
    std::error_code error;
    root_ = agent_root(root);
    if (!fs::exists(plugin(), error))
        throw Failure("{} is no agent folder, {} is not there; name one with --root", root_.string(),
                      plugin().string());
}

SettingsFiles AgentFolder::settings_files() const {
    SettingsFiles files;
    // Some of the files are missing in many agents, and libraries have defaults then.
    for (const char* path : settings_paths())
        if (fs::exists(root_ / path)) files[path] = read_file((root_ / path).string());
    return files;
}

// Everything but bin/: zelhost runs from where it is. A copy that fails half-way is removed here, since no destructor
// will run.
void AgentFolder::copy() {
    std::string name = (fs::temp_directory_path() / "zelhost-XXXXXX").string();
    // The system makes the folder, so that two runs never get the same one.
    if (mkdtemp(name.data()) == nullptr) throw Failure("cannot make a temporary folder {}: {}", name, strerror(errno));
    copy_ = name;
    std::error_code error;
    for (const char* part : {"config", "lib", "reshdl"})
        if (!error && fs::exists(root_ / part))
            fs::copy(root_ / part, copy_ / part, fs::copy_options::recursive, error);
    if (error) {
        const std::string reason = error.message();
        fs::remove_all(copy_, error);
        throw Failure("cannot copy the agent folder {} to {}: {}", root_.string(), name, reason);
    }
    root_ = copy_;
}

// The libraries of the copy are closed by then: whoever opened them borrowed the folder.
AgentFolder::~AgentFolder() {
    if (copy_.empty()) return;
    std::error_code error;
    fs::remove_all(copy_, error);
    if (error) console::say("cannot remove the temporary folder {}: {}", copy_.string(), error.message());
}

}  // namespace zelhost
