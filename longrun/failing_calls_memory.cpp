// The allocations: those of the C library and every form of operator new.
#include <cerrno>
#include <new>

#include "longrun/failing_calls_count.h"

namespace {

// The types of the functions that are replaced.
using Malloc = void*(size_t);
using Calloc = void*(size_t, size_t);
using Realloc = void*(void*, size_t);
using Aligned = void*(size_t, size_t);
using PosixAligned = int(void**, size_t, size_t);
using New = void*(size_t);
using NewNothrow = void*(size_t, const std::nothrow_t&);
using NewAligned = void*(size_t, std::align_val_t);
using NewAlignedNothrow = void*(size_t, std::align_val_t, const std::nothrow_t&);

bool no_memory(const char* function) { return failing_calls::fails(function, ENOMEM); }

template <class F, class... Arguments>
// Calls the next operator new without counting what it does.
void* guarded_call(F* function, Arguments... arguments) {
    if (failing_calls::inside()) return function(arguments...);
    const failing_calls::Inside inside;
    return function(arguments...);
}

}  // namespace

// free is not among these: what fails was never given out.
INTERPOSED void* malloc(size_t size) { return no_memory("malloc") ? nullptr : NEXT(Malloc, "malloc")(size); }
INTERPOSED void* calloc(size_t count, size_t size) {
    return no_memory("calloc") ? nullptr : NEXT(Calloc, "calloc")(count, size);
}
INTERPOSED void* realloc(void* block, size_t size) {
    return no_memory("realloc") ? nullptr : NEXT(Realloc, "realloc")(block, size);
}
INTERPOSED void* aligned_alloc(size_t alignment, size_t size) {
    return no_memory("aligned_alloc") ? nullptr : NEXT(Aligned, "aligned_alloc")(alignment, size);
}
// This one gives its error as its answer.
INTERPOSED int posix_memalign(void** block, size_t alignment, size_t size) {
    return no_memory("posix_memalign") ? ENOMEM : NEXT(PosixAligned, "posix_memalign")(block, alignment, size);
}

// The forms that throw and those that do not, each for one object and for arrays, plain and aligned.
EXPORTED void* operator new(size_t size) {
    if (no_memory("new")) throw std::bad_alloc();
    return guarded_call(NEXT(New, "_Znwm"), size);
}
EXPORTED void* operator new[](size_t size) {
    if (no_memory("new[]")) throw std::bad_alloc();
    return guarded_call(NEXT(New, "_Znam"), size);
}
EXPORTED void* operator new(size_t size, const std::nothrow_t& tag) noexcept {
    return no_memory("new(nothrow)") ? nullptr : guarded_call(NEXT(NewNothrow, "_ZnwmRKSt9nothrow_t"), size, tag);
}
EXPORTED void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return no_memory("new(nothrow)[]") ? nullptr : guarded_call(NEXT(NewNothrow, "_ZnamRKSt9nothrow_t"), size, tag);
}
EXPORTED void* operator new(size_t size, std::align_val_t alignment) {
    if (no_memory("new")) throw std::bad_alloc();
    return guarded_call(NEXT(NewAligned, "_ZnwmSt11align_val_t"), size, alignment);
}
EXPORTED void* operator new[](size_t size, std::align_val_t alignment) {
    if (no_memory("new[]")) throw std::bad_alloc();
    return guarded_call(NEXT(NewAligned, "_ZnamSt11align_val_t"), size, alignment);
}
EXPORTED void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t& tag) noexcept {
    return no_memory("new(nothrow)")
               ? nullptr
               : guarded_call(NEXT(NewAlignedNothrow, "_ZnwmSt11align_val_tRKSt9nothrow_t"), size, alignment, tag);
}
EXPORTED void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t& tag) noexcept {
    return no_memory("new(nothrow)[]")
               ? nullptr
               : guarded_call(NEXT(NewAlignedNothrow, "_ZnamSt11align_val_tRKSt9nothrow_t"), size, alignment, tag);
}
