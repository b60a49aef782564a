// Paths of the agent, and libraries opened through the support library.
#pragma once

#include <cstdint>
#include <string>

namespace zel {

inline constexpr uint32_t kPathSize = 4097;

// "@/..." resolved against the plug-in's folder, into a buffer of `size` bytes; empty when it does not fit.
std::string module_path(const char* path, uint32_t size = kPathSize);

// A library opened with zel_dll_open, closed by the destructor.
class Dll {
public:
    Dll() = default;
    ~Dll() { close(); }
    Dll(Dll&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
    Dll& operator=(Dll&& other) noexcept;

    // Result of zel_dll_open; the library is loaded if handle() is set afterwards.
    int32_t open(const std::string& path);
    // Result of zel_dll_get_addr; `function` is a function pointer and null on failure.
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
