// An agent's folder on disk, or a temporary copy of it with other settings.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace zelhost {

// One value in an ini file of the agent folder.
// The library reads the files itself, so a value is text and is not checked here.
struct Setting {
    std::string file;  // zelreshdl, zeltrc or zel_pure_mode
    std::string section;
    std::string key;
    std::string value;
};

// Parses FILE:SECTION:KEY=VALUE. Throws Failure when it has another form or names an unknown file.
Setting parse_setting(const std::string& text);

// The root that a command line names: absolute, not checked. Empty stands for the folder above the one that holds the
// executable.
std::filesystem::path agent_root(const std::string& root);

// What an agent's settings files hold, by their paths from the root. A file that is not there has no entry.
using SettingsFiles = std::map<std::string, std::string>;

// Owns the copy, if there is one, and removes it at its end. Everything that is loaded from the folder must be closed
// by then.
class AgentFolder {
public:
    // `root` as of agent_root. With settings the folder is copied first, since a library finds its files from the place
    // it was loaded from. Throws Failure when it is no agent folder.
    AgentFolder(const std::string& root, const std::vector<Setting>& settings);
    // The same with these settings files in a copy, and no others.
    AgentFolder(const std::string& root, const SettingsFiles& files);
    ~AgentFolder();
    AgentFolder(const AgentFolder&) = delete;
    AgentFolder& operator=(const AgentFolder&) = delete;

    const std::filesystem::path& root() const { return root_; }
    // The two places from which a host loads; neither path is checked.
    std::filesystem::path plugin() const { return root_ / "reshdl/bin/libzelreshdl.so"; }
    std::filesystem::path library(const char* name) const { return root_ / "reshdl/lib" / name; }

    // Throws Failure when one cannot be read.
    SettingsFiles settings_files() const;

private:
    void find(const std::string& root);
    void copy();

    // The folder that libraries are loaded from: the copy if there is one.
    std::filesystem::path root_;
    std::filesystem::path copy_;  // empty without one
};

}  // namespace zelhost
