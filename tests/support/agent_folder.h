// An agent folder for a test program: "@/" stands for reshdl/bin in it, through a path function of the program's own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/zel_support.h"

namespace zel_test {

// Made for the run of the program and removed at its end.
class AgentFolder {
public:
    static AgentFolder& get() {
        static AgentFolder folder;
        return folder;
    }
    ~AgentFolder() { std::filesystem::remove_all(root_); }

    std::string path(const std::string& name) const { return root_ + "/reshdl/bin/" + name; }
    // Writes a file that the plug-in knows as "@/NAME".
    void write(const std::string& name, const std::string& text) const { std::ofstream(path(name)) << text; }
    void remove(const std::string& name) const { std::filesystem::remove(path(name)); }

private:
    AgentFolder() {
        root_ = (std::filesystem::temp_directory_path() / "agentXXXXXX").string();
        if (mkdtemp(root_.data()) == nullptr) abort();
        for (const char* folder : {"/reshdl/bin", "/reshdl/config", "/config"})
            std::filesystem::create_directories(root_ + folder);
    }

    std::string root_;
};

}  // namespace zel_test

extern "C" __attribute__((used)) inline int32_t zel_dirutils_path_transform(const char* path, char* out,
                                                                            uint32_t size) {
    const std::string text = path;
    const std::string full = text.starts_with("@/") ? zel_test::AgentFolder::get().path(text.substr(2)) : text;
    return zel_str_strlcpy(out, full.c_str(), size) < size ? 0 : -1;
}
