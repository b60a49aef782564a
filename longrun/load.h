// A host that calls everything at once. Several threads publish, configure, ask for traces and reports, and reset the
// data store. Only start and stop of the pipeline are left to the caller.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <thread>
#include <vector>

#include "longrun/incoming.h"
#include "longrun/rig.h"

namespace zelhost {

// What the threads may do beside publishing.
struct LoadOptions {
    bool resets = false;
    bool reports_at_any_time = false;  // and set the figures to zero; otherwise every buffer is too small
    bool leaves_nothing = false;       // no events and calls of which the plug-in keeps something on purpose
};

// Owns the threads and borrows the rig, which must outlive it. The destructor ends the threads. Everything else is
// called by one thread.
class Load {
public:
    Load(Rig& rig, const LoadOptions& options, uint32_t seed);
    ~Load();
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    // When pause returns, no thread is in a call. None begins another before resume. A caller pauses before it looks at
    // exact figures.
    void pause();
    void resume();

    // Calls that answered what they should not. Each of them is also a line on standard error.
    uint64_t wrong_answers() const { return wrong_answers_; }

private:
    struct Worker;
    static const Worker kWorkers[];

    void work(const Worker& worker, uint32_t seed);
    // enter waits while the load is paused and answers false at the end; leave ends a turn.
    bool enter();
    void leave();

    void publish(Random& random, Mixture& mixture);
    void configure(Random& random, Mixture& mixture);
    void trace(Random& random, Mixture& mixture);
    void collect(Random& random, Mixture& mixture);
    void reset(Random& random, Mixture& mixture);
    void call_plain(Random& random, Mixture& mixture);
    void expect(const char* call, int answer, std::initializer_list<int> allowed);

    Rig& rig_;
    const LoadOptions options_;
    std::atomic<uint64_t> wrong_answers_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopped_ = false;  // this and the next two under the mutex
    bool paused_ = false;
    int running_ = 0;
    std::vector<std::thread> threads_;
};

}  // namespace zelhost
