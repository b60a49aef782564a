// Storage for an object that is never destroyed. Threads of the bus and of the host use such an object up to the last
// moment of the process. The destructors of other static objects have run by then, so its own destructor must never
// run. The storage is static, so making the object allocates nothing for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

#include "platform/zel_support.h"

namespace zel {

template <class T>
class NeverEnds {
public:
    template <class... Arguments>
    constexpr explicit NeverEnds(Arguments&&... arguments) : object_(std::forward<Arguments>(arguments)...) {}
    constexpr ~NeverEnds() {}  // NOLINT(modernize-use-equals-default): a default one would end the object
    NeverEnds(const NeverEnds&) = delete;
    NeverEnds& operator=(const NeverEnds&) = delete;

    constexpr T& operator*() { return object_; }

private:
    union {
        T object_;
    };
};

// The same for an object that is made at its first use: one thread makes it, others wait meanwhile. The making must not
// fail, since the support library remembers a try, not its success.
template <class T>
class MadeOnce {
    static_assert(std::is_nothrow_default_constructible_v<T>);

public:
    // Any thread.
    T& get() {
        zel_singleton_once(&once_, [](void* place) { new (place) T; }, place_);
        return *std::launder(reinterpret_cast<T*>(place_));
    }

private:
    int32_t once_ = 0;
    alignas(T) std::byte place_[sizeof(T)] = {};
};

}  // namespace zel
