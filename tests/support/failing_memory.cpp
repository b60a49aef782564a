#include "support/failing_memory.h"

#include <cstdlib>
#include <new>

static void* allocate(size_t size) {
    using zel_test::allocations_left;
    return allocations_left >= 0 && allocations_left-- == 0 ? nullptr : malloc(size);
}

void* operator new(size_t size) {
    if (void* memory = allocate(size)) return memory;
    throw std::bad_alloc();
}
void* operator new(size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { free(memory); }
void operator delete(void* memory, size_t) noexcept { free(memory); }
