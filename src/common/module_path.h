// Paths of the agent's files, and libraries that are opened through the support library.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace zel {

inline constexpr uint32_t kPathSize = 4097;

// Resolves "@/..." against the plug-in's own folder. `size` is the room for the result with its terminator. The answer
// is empty when it does not fit. Throws std::bad_alloc.
std::string module_path(const char* path, uint32_t size = kPathSize);

// A library that is opened by its path, and the functions that are looked up in it, in that order. There is one row for
// each library, beside the code that opens it.
struct LibraryRow {
    const char* path;  // "@/" stands for the plug-in's folder
    std::span<const char* const> functions;
    uint32_t path_size = kPathSize;  // room for the resolved path with its terminator

    std::string where() const { return module_path(path, path_size); }
};
// The names of rows that hold more than the names.
template <class Row, size_t N>
constexpr std::array<const char*, N> names_of(const Row (&rows)[N]) {
    std::array<const char*, N> names{};
    for (size_t i = 0; i < N; ++i) names[i] = rows[i].name;
    return names;
}

// Owns a library that zel_dll_open opened; the destructor closes it. Function pointers from it are valid until then.
class Dll {
public:
    Dll() = default;
    ~Dll() { close(); }
    Dll(Dll&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
    Dll& operator=(Dll&& other) noexcept;

    // The answer is that of zel_dll_open. It can be 0 without a library, so callers look at handle() as well.
    int32_t open(const std::string& path);
    // Looks up a function. The answer is that of zel_dll_get_addr; on failure `function` becomes null.
    template <class F>
    int32_t get(const char* name, F*& function) const {
        void* address = nullptr;
        const int32_t result = address_of(name, &address);
        function = reinterpret_cast<F*>(address);
        return result;
    }
    void close();
    void* handle() const { return handle_; }

private:
    int32_t address_of(const char* name, void** address) const;

    void* handle_ = nullptr;
};

}  // namespace zel
