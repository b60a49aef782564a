// RTLD_NOW, so that a library that lacks something is found out here and not in the middle of a run.
#include "host/lib/libraries.h"

#include <atomic>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

// A leak report names no function of a library that is gone.
constexpr int kOpenFlags = RTLD_NOW | (ZEL_ADDRESS_SANITIZER != 0 ? RTLD_NODELETE : 0);

// One session at a time sets it. The overrides read it on any thread.
std::atomic<void*> g_support = nullptr;

}  // namespace

Library::Library(const std::filesystem::path& path, int visibility)
    : path_(path), handle_(dlopen(path.c_str(), kOpenFlags | visibility)) {
    // The loader's own message names the file and what it lacks.
    if (handle_ == nullptr) throw Failure("{}; is the agent folder complete?", dlerror());
}

Library::~Library() {
    // A library that was kept has no handle any more.
    if (handle_ != nullptr) dlclose(handle_);
}

// The loader compares files, so that another spelling of the path finds the library, too.
bool is_loaded(const std::filesystem::path& path) {
    // This opens nothing: it only finds what is open, and counts it once more until it is closed.
    void* const handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

void* find_function(const Library& library, const char* name, Need need) {
    void* const found = library.symbol(name);
    if (found == nullptr && need == Need::required)
        throw Failure("{} has no function {}; is it of another version?", library.path(), name);
    return found;
}

SupportInUse::SupportInUse(const Support& support) { g_support = support.library.handle(); }

SupportInUse::~SupportInUse() { g_support = nullptr; }

void* support_library() { return g_support; }

lummb_counts Bus::counts() const {
    lummb_counts counts{};
    get_counts(&counts);
    return counts;
}

}  // namespace zelhost
