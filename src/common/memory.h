// Owners of memory of the C library, and the mark for memory that stays allocated on purpose.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace zel {

struct FreeDeleter {
    void operator()(void* memory) const { free(memory); }
};

// Owns a buffer of the C library. A serialised message travels in it from its builder to the event that carries it.
using MallocBuffer = std::unique_ptr<char, FreeDeleter>;

// A buffer of `size` bytes for a caller that writes all of them, or null when there is no memory. For a size of 0 one
// byte is allocated, so that null always means that memory ran out.
MallocBuffer malloc_buffer(uint64_t size);

// A copy of `size` bytes, or null when there is no memory. With a size of 0 `data` may be null.
MallocBuffer copy_bytes(const char* data, uint64_t size);

// Says that an object stays allocated on purpose: nobody will free it. A leak checker is told so, and it then also
// accepts what the object points to. In a build without a leak checker the call does nothing. The reason stands beside
// each call.
void leave_allocated(const void* object);

// Whether records of a refused document stay allocated as they do in the agent. A checker of many documents frees them.
#ifdef ZEL_OBSERVED
inline constexpr bool kRecordsStay = false;
#else
inline constexpr bool kRecordsStay = true;
#endif

}  // namespace zel
