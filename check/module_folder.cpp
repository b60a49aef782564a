#include "check/module_folder.h"

#include <cstdio>
#include <utility>

#include "platform/zel_support.h"

namespace zel::check {
namespace {

// Nothing lies below a file, whatever follows.
constexpr const char* kNowhere = "/dev/null";

std::string& module_folder() {
    static std::string folder = kNowhere;
    return folder;
}

}  // namespace

ModuleFolder::ModuleFolder(std::string folder) { module_folder() = std::move(folder); }
ModuleFolder::~ModuleFolder() { module_folder() = kNowhere; }

}  // namespace zel::check

// A path that does not fit is refused, as by the stand-in.
int32_t zel_dirutils_path_transform(const char* path, char* out, uint32_t size) {
    if (path == nullptr || out == nullptr || size == 0) return -1;
    const bool in_module = path[0] == '@' && (path[1] == '/' || path[1] == '\0');
    const int length =
        snprintf(out, size, "%s%s", in_module ? zel::check::module_folder().c_str() : "", in_module ? path + 1 : path);
    return length >= 0 && static_cast<uint32_t>(length) < size ? 0 : -1;
}
