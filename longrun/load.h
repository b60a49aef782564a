// A host that calls everything at once: several threads publish, configure, ask for traces and reports, and reset the
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

struct LoadOptions {
    bool resets = false;
    bool reports_at_any_time = false;  // which then set the figures to zero; otherwise all buffers are too small
};

class Load {
public:
    Load(Rig& rig, const LoadOptions& options, uint32_t seed);
    ~Load();
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    // No call of any thread is running when pause returns; none begins before resume.
    void pause();
    void resume();

    // Calls that answered what they should not; each is said on standard error.
    uint64_t wrong_answers() const { return wrong_answers_; }

private:
    struct Worker;
    static const Worker kWorkers[];

    void work(const Worker& worker, uint32_t seed);
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
