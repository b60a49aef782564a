// Ownership of what comes from calloc, and of what is left to live on purpose.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace zel {

struct FreeDeleter {
    void operator()(void* memory) const { free(memory); }
};

// A buffer from calloc. Messages travel in it from a builder to the event that carries them.
using MallocBuffer = std::unique_ptr<char, FreeDeleter>;

// A zeroed buffer of `size` bytes, null when there is no memory. A size of 0 is no failure: one byte is asked for then.
MallocBuffer calloc_buffer(uint64_t size);

// A copy of `size` bytes, null when there is no memory. `data` may be null with a size of 0.
MallocBuffer copy_bytes(const char* data, uint64_t size);

// Says that an object is meant to stay allocated although nobody will free it. A leak checker is told so, and what the
// object points to is known with it; otherwise this does nothing. The call stands beside the reason.
void leave_allocated(const void* object);

}  // namespace zel
