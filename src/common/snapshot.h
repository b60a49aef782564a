// A value that is replaced while other threads use it. A user takes a share and keeps it for the whole call. Replacing
// returns at once. The last thread that lets its share go ends the old value, so that is where a library is closed.
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
    // Returns the former value, so that the caller ends it after the lock is gone.
    Share exchange(Share value) {
        const Lock lock(mutex_);
        return std::exchange(value_, std::move(value));
    }

private:
    mutable PlainMutex mutex_;
    Share value_ GUARDED_BY(mutex_);
};

}  // namespace zel
