// Threads that load a plug-in. Some publish. If wanted, others call everything else that a host may call, all at once:
// they configure, ask for traces and reports, and reset the data store. Start and stop of the pipeline are left to the
// caller.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "host/lib/session.h"
#include "host/load/publisher.h"

namespace zelhost {

// What the threads do.
struct LoadPlan {
    // The kinds of events and their shares.
    Events events;
    uint32_t publishers = 3;
    Pace pace;           // of all publishers together
    bool calls = false;  // the calls beside publishing; the rest is about them
    // Some of the calls begin and end reset periods. Events that come in such a period are let go.
    bool resets = false;
    bool reports_at_any_time = false;  // and set the figures to zero; otherwise every buffer is too small
    bool file_traces = true;           // the plug-in keeps something of each on purpose
};

// Owns the threads and borrows the session. The destructor ends the threads. Everything else is called by one thread.
class Load {
public:
    // Begins at once. `now_and_then` is called between turns of the publishers, on their threads.
    // Throws std::system_error when a thread cannot be started. The due times are borrowed as well;
    // with none, nothing is noted.
    Load(Session& session, const LoadPlan& plan, DueTimes* due_times = nullptr,
         std::function<void()> now_and_then = {});
    ~Load();
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    // When pause returns, no thread is in a call. None begins another before resume. A caller pauses before it looks at
    // exact figures.
    void pause();
    void resume();
    // Only while the load is paused.
    // Takes effect when the load goes on.
    void set_pace(const Pace& pace) { plan_.pace = pace; }

    // The next two only while the load is paused. The second is for a steady pace, since the last resume.
    uint64_t published() const;
    Publisher::Clock::duration latest() const;
    // Processor time of the publishers, in nanoseconds.
    int64_t publishers_cpu_ns();

    // Calls that answered what they should not. Each of them is also a line on standard error.
    uint64_t wrong_answers() const { return wrong_answers_; }

private:
    // A kind of thread that makes the calls, and the table of all kinds. They are members because a
    // row names private functions.
    struct Worker;
    static const Worker kWorkers[];

    // The bodies of the threads. The seed tells the random numbers of one thread from those of
    // another.
    void work(const Worker& worker, uint32_t seed);
    void publish(Publisher& publisher, uint32_t seed);
    // enter waits while the load is paused. It answers how often the load has begun or gone on, and 0 at the end. leave
    // ends a turn.
    uint64_t enter();
    void leave();
    void stop();

    // One turn each: a call of the host with arguments that are drawn.
    void configure(Random& random);
    void trace(Random& random);
    void collect(Random& random);
    void reset(Random& random);
    void call_plain(Random& random);
    // Counts an answer that is not among those that are allowed.
    void expect(const char* call, int answer, std::initializer_list<int> allowed);

    Session& session_;
    LoadPlan plan_;
    const std::function<void()> now_and_then_;
    // Threads of every kind count here; an atomic needs no lock.
    std::atomic<uint64_t> wrong_answers_ = 0;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    // These four say where the load stands. Threads look at them between turns.
    bool stopped_ = false;  // this and the next three under the mutex
    bool paused_ = false;
    // Threads that are in a turn. A pause waits until there is none.
    int running_ = 0;
    uint64_t rounds_ = 1;
    // Each is used by its own thread, and by the caller while the load is paused.
    std::vector<std::unique_ptr<Publisher>> publishers_;
    std::vector<std::thread> threads_;  // the publishers first
};

}  // namespace zelhost
