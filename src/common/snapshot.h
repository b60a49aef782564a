// A value that is replaced while others use it: who uses it takes a share and keeps it for the call, who replaces it
// returns at once, and the last one to let go ends the old value.
#pragma once

#include <memory>
#include <utility>

#include "common/mutex.h"

namespace zel {

template <class T>
class Snapshot {
public:
    using Share = std::shared_ptr<const T>;

    // Null while there is no value.
    Share get() const {
        const Lock lock(mutex_);
        return value_;
    }
    // Returns the value before.
    Share exchange(Share value) {
        const Lock lock(mutex_);
        return std::exchange(value_, std::move(value));
    }

private:
    mutable PlainMutex mutex_;
    Share value_ GUARDED_BY(mutex_);
};

}  // namespace zel
