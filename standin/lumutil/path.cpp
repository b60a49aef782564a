// Paths: whether a file exists, and the way into a container.
#include <unistd.h>

#include <climits>
#include <cstdio>

#include "platform/zel_support.h"

int32_t zel_path_is_exist_u(const char* path) { return path != nullptr && access(path, F_OK) == 0 ? 1 : 0; }

int32_t get_agent_path(const char* path, uint32_t length, int32_t init_pid, char* out, uint32_t size) {
    if (path == nullptr || out == nullptr || size == 0) return -1;
    char root[32] = "";
    if (init_pid > 0) snprintf(root, sizeof root, "/proc/%d/root", init_pid);
    // Printf takes the length as an int.
    const int shown = length > INT_MAX ? INT_MAX : static_cast<int>(length);
    if (snprintf(out, size, "%s%.*s", root, shown, path) < 0) out[0] = '\0';
    return 0;
}
