// A schedule that a test decides. Two threads share a baton, and only the one that has it runs. At each lock, and where
// a test says so, the thread may hand the baton over; the switches of its step decide that. So one sequence of steps
// always runs in one order.
//
// The program has mutex functions of its own in the place of the support library's, and the linker puts functions of
// the program before those of a reader-writer lock. All of them know the baton.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

namespace models {

class Baton {
public:
    // Runs both on threads of their own, the first of them first, until both have ended.
    void run(const std::function<void()>& first, const std::function<void()>& second);

    // What the threads did with locks that no thread may do, such as to wait for each other for ever. Empty when there
    // is nothing to say. After run.
    const std::string& fault() const { return fault_; }

    // The thread that runs: bit N of `switches` hands the baton over at the Nth place from here on.
    static void begin_step(uint32_t switches);
    // A place at which the baton may go over. Does nothing on a thread without a baton.
    static void place();
    // Waits until `try_lock` gives 0; EDEADLK when it never can, because the other thread waits, too, or has ended.
    static int wait_for(const std::function<int()>& try_lock);
    // Something was unlocked, so whoever waits may try again.
    static void unlocked();
    // Keeps the first fault.
    static void note_fault(const char* what);
    // A number for the thread: 0 and 1 within run, 2 outside.
    static int self();
    // While it is set on a thread, no mutex can be made there.
    static bool& refuse_mutex();

private:
    void work(int thread, const std::function<void()>& body);
    void hand_over();

    std::mutex mutex_;  // guards the next four
    std::condition_variable changed_;
    int turn_ = 0;
    bool ended_[2] = {};
    bool waits_[2] = {};  // for a lock, and nothing was unlocked since
    std::string fault_;
};

}  // namespace models
