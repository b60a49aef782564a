// A queue of the pipeline: a list with its mutex.
//
// The mutex of the support library lives from open to close. The gate guards that life: who uses the queue holds it
// shared, who makes or destroys the mutex holds it alone, and so does a user while there is no mutex. No thread holds
// the mutexes of two queues.
//
// Before the first open the queue takes what is pushed, since events can arrive while the plug-in still starts. After a
// close it refuses everything until the next open.
#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <new>
#include <shared_mutex>
#include <utility>

#include "common/mutex.h"

template <class Node>
class WorkQueue {
public:
    using Item = std::unique_ptr<Node>;
    // Room for one item, made beforehand, so that nothing can fail once an item goes in. Empty when there is no memory.
    using Cell = std::list<Item>;
    static Cell make_cell() {
        Cell cell;
        try {
            cell.emplace_back();
        } catch (const std::bad_alloc&) {
            cell.clear();
        }
        return cell;
    }

    // Holds the queue's mutex for several steps.
    class SCOPED_CAPABILITY Hold {
    public:
        explicit Hold(WorkQueue& queue) ACQUIRE(queue.mutex_) NO_THREAD_SAFETY_ANALYSIS : queue_(queue),
                                                                                        shared_(queue.gate_) {
            if (queue.mutex_.valid()) {
                queue.mutex_.lock();
            } else {
                shared_.unlock();
                alone_ = std::unique_lock(queue.gate_);
            }
        }
        ~Hold() RELEASE() NO_THREAD_SAFETY_ANALYSIS {
            if (shared_.owns_lock()) queue_.mutex_.unlock();
        }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        WorkQueue& queue_;
        std::shared_lock<std::shared_mutex> shared_;
        std::unique_lock<std::shared_mutex> alone_;
    };

    // Makes the mutex. False if the support library refuses. What was pushed before stays.
    bool open() NO_THREAD_SAFETY_ANALYSIS {
        const std::unique_lock gate(gate_);
        accepting_ = mutex_.init();
        return accepting_;
    }
    // Discards what is queued and destroys the mutex, in one step: nothing can be pushed in between.
    void close() NO_THREAD_SAFETY_ANALYSIS {
        Cell discarded;
        const std::unique_lock gate(gate_);
        accepting_ = false;
        items_.swap(discarded);
        mutex_.destroy();
    }

    // Moves the cell with its item to the end. False, and the item still in the cell, when the queue is closed.
    bool push(Cell& cell) EXCLUDES(mutex_) {
        const Hold hold(*this);
        return push_held(cell);
    }
    bool push_held(Cell& cell) REQUIRES(mutex_) {
        if (!accepting_) return false;
        items_.splice(items_.end(), cell);
        return true;
    }

    // The front item, or null when there is none.
    Item take() EXCLUDES(mutex_) {
        return take_if([](const Node&) { return true; });
    }
    // The front item if it is `due`. One that is not due holds back all behind it.
    template <class Due>
    Item take_if(Due due) EXCLUDES(mutex_) {
        const Hold hold(*this);
        if (items_.empty() || !due(*items_.front())) return nullptr;
        Item item = std::move(items_.front());
        items_.pop_front();
        return item;
    }

    size_t size() EXCLUDES(mutex_) {
        const Hold hold(*this);
        return size_held();
    }
    size_t size_held() const REQUIRES(mutex_) { return items_.size(); }

private:
    std::shared_mutex gate_;
    zel::Mutex mutex_;
    std::list<Item> items_ GUARDED_BY(mutex_);
    bool accepting_ GUARDED_BY(mutex_) = true;
};
