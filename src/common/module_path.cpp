#include "common/module_path.h"

#include <utility>
#include <vector>

#include "platform/zel_support.h"

namespace zel {

std::string module_path(const char* path, uint32_t size) {
    std::vector<char> out(size, '\0');
    // The result is used, so that this is no tail call: the support library looks at the return address.
    return zel_dirutils_path_transform(path, out.data(), size) == 0 ? std::string(out.data()) : std::string();
}

Dll& Dll::operator=(Dll&& other) noexcept {
    if (this != &other) {
        close();
        handle_ = std::exchange(other.handle_, nullptr);
    }
    return *this;
}

int32_t Dll::open(const std::string& path) { return zel_dll_open(path.c_str(), &handle_); }

int32_t Dll::address_of(const char* name, void** address) const { return zel_dll_get_addr(handle_, name, address); }

void Dll::close() {
    if (handle_ != nullptr) zel_dll_close(handle_);
    handle_ = nullptr;
}

}  // namespace zel
