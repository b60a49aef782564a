// The operators are here as well: an allocator that is preloaded brings its own, which would not be counted.
#include "longrun/counted_memory.h"

#include <dlfcn.h>
#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>

#define COUNTED extern "C" __attribute__((visibility("default")))
#define OPERATOR __attribute__((visibility("default")))

namespace {

struct Allocator {
    decltype(&malloc) allocate;
    decltype(&free) release;
    decltype(&realloc) resize;
    decltype(&memalign) align;
    decltype(&malloc_usable_size) size_of;
};

std::atomic<int64_t> g_blocks{0};
std::atomic<int64_t> g_bytes{0};

// For what is asked for while the functions are looked up. It is never given back and not counted.
alignas(std::max_align_t) char g_first_room[4096];
std::atomic<size_t> g_first_used{0};

bool is_first(const void* block) {
    const auto* const at = static_cast<const char*>(block);
    return at >= g_first_room && at < g_first_room + sizeof g_first_room;
}

void* first_block(size_t size) {
    constexpr size_t kStep = alignof(std::max_align_t);
    const size_t wanted = (size + kStep - 1) / kStep * kStep;
    const size_t at = g_first_used.fetch_add(wanted);
    return at + wanted <= sizeof g_first_room ? g_first_room + at : nullptr;
}

// Several threads may look up at once; they find the same.
Allocator g_allocator;
std::atomic<bool> g_found{false};
// Set while this file asks the loader or the allocator. What either of them allocates for itself is not counted.
thread_local bool t_inside = false;

template <class F>
void look_up(F*& function, const char* name) {
    function = reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

// Null while this thread looks the functions up.
const Allocator* allocator() {
    if (g_found.load(std::memory_order_acquire)) return &g_allocator;
    if (t_inside) return nullptr;
    t_inside = true;
    look_up(g_allocator.allocate, "malloc");
    look_up(g_allocator.release, "free");
    look_up(g_allocator.resize, "realloc");
    look_up(g_allocator.align, "memalign");
    look_up(g_allocator.size_of, "malloc_usable_size");
    t_inside = false;
    g_found.store(true, std::memory_order_release);
    return &g_allocator;
}

void count(int64_t blocks, int64_t bytes) {
    g_blocks.fetch_add(blocks, std::memory_order_relaxed);
    g_bytes.fetch_add(bytes, std::memory_order_relaxed);
}

int64_t size_of(void* block) {
    t_inside = true;
    const size_t size = g_allocator.size_of(block);
    t_inside = false;
    return static_cast<int64_t>(size);
}

void* counted(void* block) {
    if (block != nullptr && !t_inside) count(1, size_of(block));
    return block;
}

void* aligned(size_t alignment, size_t size) {
    const Allocator* const from = allocator();
    return from == nullptr ? nullptr : counted(from->align(alignment, size));
}

void* or_throw(void* block) {
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

namespace zelhost {

Memory living_memory() { return {g_blocks.load(), g_bytes.load()}; }

std::string allocator_name() {
    Dl_info info{};
    const auto* const from = allocator();
    if (dladdr(reinterpret_cast<void*>(from->allocate), &info) == 0) return "?";
    const char* const slash = strrchr(info.dli_fname, '/');
    return slash == nullptr ? info.dli_fname : slash + 1;
}

}  // namespace zelhost

COUNTED void* malloc(size_t size) noexcept {
    const Allocator* const from = allocator();
    return from == nullptr ? first_block(size) : counted(from->allocate(size));
}

// Zeroed here and not by the allocator's own function, which would need a place in the table for this alone.
COUNTED void* calloc(size_t count, size_t size) noexcept {
    size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    // volatile keeps the compiler from making a call of calloc out of the two steps.
    void* (*volatile const allocate)(size_t) = malloc;
    void* const block = allocate(bytes);
    return block == nullptr ? nullptr : memset(block, 0, bytes);
}

COUNTED void free(void* block) noexcept {
    // What the allocator has made for itself at its start may be freed before anything else was asked for.
    if (block == nullptr || is_first(block) || allocator() == nullptr) return;
    if (!t_inside) count(-1, -size_of(block));
    g_allocator.release(block);
}

COUNTED void* realloc(void* block, size_t size) noexcept {
    if (block == nullptr) return malloc(size);
    if (is_first(block)) {
        void* const moved = malloc(size);
        const auto room = static_cast<size_t>(g_first_room + sizeof g_first_room - static_cast<char*>(block));
        return moved == nullptr ? nullptr : memcpy(moved, block, size < room ? size : room);
    }
    if (t_inside) return g_allocator.resize(block, size);
    const int64_t before = size_of(block);
    void* const moved = g_allocator.resize(block, size);
    if (moved != nullptr)
        count(0, size_of(moved) - before);
    else if (size == 0)
        count(-1, -before);
    return moved;
}

COUNTED void* memalign(size_t alignment, size_t size) noexcept { return aligned(alignment, size); }
COUNTED void* aligned_alloc(size_t alignment, size_t size) noexcept { return aligned(alignment, size); }
COUNTED int posix_memalign(void** out, size_t alignment, size_t size) noexcept {
    void* const block = aligned(alignment, size);
    if (block == nullptr) return ENOMEM;
    *out = block;
    return 0;
}

using Align = std::align_val_t;
using NoThrow = const std::nothrow_t&;

OPERATOR void* operator new(size_t size) { return or_throw(malloc(size)); }
OPERATOR void* operator new[](size_t size) { return or_throw(malloc(size)); }
OPERATOR void* operator new(size_t size, NoThrow) noexcept { return malloc(size); }
OPERATOR void* operator new[](size_t size, NoThrow) noexcept { return malloc(size); }
OPERATOR void* operator new(size_t size, Align a) { return or_throw(aligned(static_cast<size_t>(a), size)); }
OPERATOR void* operator new[](size_t size, Align a) { return or_throw(aligned(static_cast<size_t>(a), size)); }
OPERATOR void* operator new(size_t size, Align a, NoThrow) noexcept { return aligned(static_cast<size_t>(a), size); }
OPERATOR void* operator new[](size_t size, Align a, NoThrow) noexcept { return aligned(static_cast<size_t>(a), size); }
OPERATOR void operator delete(void* block) noexcept { free(block); }
OPERATOR void operator delete[](void* block) noexcept { free(block); }
OPERATOR void operator delete(void* block, size_t) noexcept { free(block); }
OPERATOR void operator delete[](void* block, size_t) noexcept { free(block); }
OPERATOR void operator delete(void* block, NoThrow) noexcept { free(block); }
OPERATOR void operator delete[](void* block, NoThrow) noexcept { free(block); }
OPERATOR void operator delete(void* block, Align) noexcept { free(block); }
OPERATOR void operator delete[](void* block, Align) noexcept { free(block); }
OPERATOR void operator delete(void* block, size_t, Align) noexcept { free(block); }
OPERATOR void operator delete[](void* block, size_t, Align) noexcept { free(block); }
OPERATOR void operator delete(void* block, Align, NoThrow) noexcept { free(block); }
OPERATOR void operator delete[](void* block, Align, NoThrow) noexcept { free(block); }
