#include "agent.h"

#include <dlfcn.h>

#include "failure.h"

namespace zel {
namespace {

// A leak report names no function of a library that is gone.
constexpr int kOpenFlags = RTLD_NOW | RTLD_LOCAL | (ZEL_ADDRESS_SANITIZER != 0 ? RTLD_NODELETE : 0);

}  // namespace

Library::Library(const std::filesystem::path& path) : path_(path), handle_(dlopen(path.c_str(), kOpenFlags)) {
    if (handle_ == nullptr) throw Failure("{}; is the agent folder complete?", dlerror());
}

Library::~Library() { dlclose(handle_); }

void* Library::symbol(const char* name) const {
    void* const found = dlsym(handle_, name);
    if (found == nullptr) throw Failure("{} has no function {}; is it of another version?", path_, name);
    return found;
}

lummb_counts Bus::counts() const {
    lummb_counts counts{};
    get_counts(&counts);
    return counts;
}

zeltrc_counts TraceCounts::counts() const {
    zeltrc_counts counts{};
    get_counts(&counts);
    return counts;
}

}  // namespace zel
