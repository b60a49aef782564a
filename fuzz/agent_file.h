// A file of the agent with the bytes of an input. It stands for every path of the plug-in's folder: the target has a
// path function of its own, which wins over the support library's.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "fuzz.h"
#include "platform/zel_support.h"

namespace fuzz {

class AgentFile {
public:
    explicit AgentFile(std::string_view bytes) : descriptor_(memfd_create("agent_file", 0)) {
        FUZZ_CHECK(descriptor_ >= 0);
        FUZZ_CHECK(write(descriptor_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
        path() = "/proc/self/fd/" + std::to_string(descriptor_);
    }
    ~AgentFile() {
        close(descriptor_);
        path().clear();
    }
    AgentFile(const AgentFile&) = delete;
    AgentFile& operator=(const AgentFile&) = delete;

    // Empty while there is no such file.
    static std::string& path() {
        static std::string current;
        return current;
    }

private:
    int descriptor_;
};

}  // namespace fuzz

extern "C" __attribute__((used)) inline int32_t zel_dirutils_path_transform(const char*, char* out, uint32_t size) {
    return zel_str_strlcpy(out, fuzz::AgentFile::path().c_str(), size) < size ? 0 : -1;
}
