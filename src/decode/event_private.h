// Owner of the record behind an event, whatever its type. The event's decoder makes the record, the event moves it
// along, and who is last frees it. Alarm worker only.
#pragma once

#include <memory>
#include <utility>

#include "common/memory.h"

namespace zel {

class EventPrivate {
public:
    EventPrivate() = default;
    template <class R>
    explicit EventPrivate(std::unique_ptr<R> record) : record_(record.release(), &destroy<R>) {}

    // Whether there is a record.
    explicit operator bool() const { return record_ != nullptr; }

    // The record if it is an R, otherwise null. The deleter tells: each type of record has its own.
    template <class R>
    const R* as() const {
        return record_.get_deleter() == &destroy<R> ? static_cast<const R*>(record_.get()) : nullptr;
    }
    // The same for who moves the record's texts on.
    template <class R>
    R* as() {
        return const_cast<R*>(std::as_const(*this).as<R>());
    }

    // Lets the record outlive its owner for good. It can be read no more; the owner still says that there is one.
    void leave() {
        if (!kRecordsStay) return;
        leave_allocated(record_.get());
        record_.get_deleter() = &keep;
    }

private:
    template <class R>
    static void destroy(void* record) {
        delete static_cast<R*>(record);
    }
    static void keep(void*) {}

    std::unique_ptr<void, void (*)(void*)> record_{nullptr, &keep};
};

}  // namespace zel
