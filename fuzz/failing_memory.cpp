// The linker leads calls of malloc in the program's own objects to __wrap_malloc, and __real_malloc to what stands
// behind it, a sanitizer's or the C library's. Shared libraries that allocate in C are given a function, and those in
// C++ find the program's operator new. So the C library itself never fails.
#include "failing_memory.h"

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdlib>
#include <new>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
}

namespace {

uint32_t g_period = 1;
uint32_t g_random = 0;

bool fails() {
    if (!fuzz::memory_fails) return false;
    g_random = g_random * 1'664'525 + 1'013'904'223;
    return (g_random >> 8) % g_period == 0;
}

void* allocate_or_throw(size_t size) {
    void* const block = fails() ? nullptr : __real_malloc(size > 0 ? size : 1);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

extern "C" {
void* __wrap_malloc(size_t size) { return fails() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(size_t count, size_t size) { return fails() ? nullptr : __real_calloc(count, size); }
void* __wrap_realloc(void* block, size_t size) { return fails() ? nullptr : __real_realloc(block, size); }
}

#define EXPORTED __attribute__((visibility("default")))
EXPORTED void* operator new(size_t size) { return allocate_or_throw(size); }
EXPORTED void* operator new[](size_t size) { return allocate_or_throw(size); }
EXPORTED void* operator new(size_t size, const std::nothrow_t&) noexcept { return __wrap_malloc(size > 0 ? size : 1); }
EXPORTED void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return __wrap_malloc(size > 0 ? size : 1);
}
EXPORTED void operator delete(void* block) noexcept { free(block); }
EXPORTED void operator delete[](void* block) noexcept { free(block); }
EXPORTED void operator delete(void* block, size_t) noexcept { free(block); }
EXPORTED void operator delete[](void* block, size_t) noexcept { free(block); }
EXPORTED void operator delete(void* block, const std::nothrow_t&) noexcept { free(block); }
EXPORTED void operator delete[](void* block, const std::nothrow_t&) noexcept { free(block); }

namespace fuzz {

FailingMemory::FailingMemory(uint32_t period, uint32_t seed) {
    [[maybe_unused]] static const bool parser_is_set_up = [] {
        cJSON_Hooks hooks{__wrap_malloc, free};
        cJSON_InitHooks(&hooks);
        return true;
    }();
    g_period = period > 0 ? period : 1;
    g_random = seed;
    memory_fails = true;
}

}  // namespace fuzz
