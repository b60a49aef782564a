#include "common/memory.h"

#if defined(__SANITIZE_ADDRESS__)
#define ZEL_LEAK_CHECKER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZEL_LEAK_CHECKER 1
#endif
#endif

#if defined(ZEL_LEAK_CHECKER)
#include <sanitizer/lsan_interface.h>
#endif

namespace zel {

MallocBuffer calloc_buffer(uint64_t size) { return MallocBuffer(static_cast<char*>(calloc(size > 0 ? size : 1, 1))); }

#if defined(ZEL_LEAK_CHECKER)
void leave_allocated(const void* object) {
    if (object != nullptr) __lsan_ignore_object(object);
}
#else
void leave_allocated(const void*) {}
#endif

}  // namespace zel
