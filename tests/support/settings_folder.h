// The settings files of a test program: "@/../config/NAME" is a file in a folder of its own, through a path function of
// the program's own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/zel_support.h"

namespace zel_test {

// Made for the run of the program and removed at its end.
class SettingsFolder {
public:
    static SettingsFolder& get() {
        static SettingsFolder folder;
        return folder;
    }
    ~SettingsFolder() { std::filesystem::remove_all(root_); }

    std::string path(const std::string& name) const { return root_ + "/" + name; }
    void write(const std::string& name, const std::string& text) const { std::ofstream(path(name)) << text; }

private:
    SettingsFolder() {
        if (mkdtemp(root_.data()) == nullptr) abort();
    }

    std::string root_ = std::filesystem::temp_directory_path() / "settingsXXXXXX";
};

}  // namespace zel_test

extern "C" __attribute__((used)) inline int32_t zel_dirutils_path_transform(const char* path, char* out,
                                                                            uint32_t size) {
    const std::string full = zel_test::SettingsFolder::get().path(std::filesystem::path(path).filename());
    return zel_str_strlcpy(out, full.c_str(), size) < size ? 0 : -1;
}
