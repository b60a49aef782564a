#include "common/memory.h"

#include <cstring>

#if ZEL_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace zel {

// malloc may answer null for a size of 0, and that would look like a lack of memory.
MallocBuffer malloc_buffer(uint64_t size) { return MallocBuffer(static_cast<char*>(malloc(size > 0 ? size : 1))); }

MallocBuffer copy_bytes(const char* data, uint64_t size) {
    MallocBuffer copy = malloc_buffer(size);
    if (copy != nullptr && size > 0) memcpy(copy.get(), data, size);
    return copy;
}

#if ZEL_ADDRESS_SANITIZER
void leave_allocated(const void* object) {
    if (object != nullptr) __lsan_ignore_object(object);
}
#else
void leave_allocated(const void*) {}
#endif

}  // namespace zel
