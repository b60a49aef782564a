// A queue of the pipeline: a list with its mutex. Any thread may call its functions.
//
// The mutex of the support library lives from open to close. The gate guards that life: a user of the queue holds the
// gate shared, and whoever makes or destroys the mutex holds it alone. While there is no mutex, a user holds the gate
// alone instead. No thread holds the mutexes of two queues.
//
// Before the first open the queue takes what is pushed, because events can arrive while the plug-in still starts. After
// a close it refuses everything until the next open. Limits are the caller's business.
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
    // Room for one item. It is made beforehand, so that nothing can fail once an item goes in. Empty when there is no
    // memory.
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

    // Holds the queue's mutex for several steps. If there is no mutex it holds the gate alone.
    class SCOPED_CAPABILITY Hold {
    public:
        explicit Hold(WorkQueue& queue) ACQUIRE(queue.mutex_) NO_THREAD_SAFETY_ANALYSIS : queue_(queue),
                                                                                          shared_(queue.gate_) {
            if (queue.mutex_.valid()) {
                queue.mutex_.lock();
            } else {
                // A shared gate cannot be turned into one held alone. The queue may be opened in between; the gate held
                // alone keeps all others out in that case, too.
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

    // For a start. Makes the mutex; false if the support library refuses. What was pushed before stays and is handled.
    bool open() NO_THREAD_SAFETY_ANALYSIS {
        const std::unique_lock gate(gate_);
        accepting_ = mutex_.init();
        return accepting_;
    }
    // For a stop, after the workers are joined. Discards what is queued and destroys the mutex in one step, so that
    // nothing can be pushed in between.
    void close() NO_THREAD_SAFETY_ANALYSIS {
        // Declared before the gate: the nodes are freed when the gate is open again.
        Cell discarded;
        const std::unique_lock gate(gate_);
        accepting_ = false;
        items_.swap(discarded);
        mutex_.destroy();
    }

    // Moves the cell with its item to the end. When the queue is closed the answer is false and the item is still in
    // the cell.
    bool push(Cell& cell) EXCLUDES(mutex_) {
        const Hold hold(*this);
        return push_held(cell);
    }
    // For a caller that has a Hold.
    bool push_held(Cell& cell) REQUIRES(mutex_) {
        if (!accepting_) return false;
        items_.splice(items_.end(), cell);
        return true;
    }

    // Takes the front item; null when there is none.
    Item take() EXCLUDES(mutex_) {
        return take_if([](const Node&) { return true; });
    }
    // Takes the front item if it is `due`. An item that is not due holds back all items behind it: they were pushed
    // later, so they are due later.
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
