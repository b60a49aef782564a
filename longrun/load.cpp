#include "longrun/load.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace zelhost {

// One kind of thread: how many there are, and what each does in a turn.
struct Load::Worker {
    int threads;
    uint32_t longest_rest_us;  // between two turns
    void (Load::*turn)(Random& random, Mixture& mixture);
};
// Two threads reset, so that their reset periods overlap.
const Load::Worker Load::kWorkers[] = {
    {3, 50000, &Load::publish}, {1, 20000, &Load::configure}, {2, 40000, &Load::trace},
    {2, 30000, &Load::collect}, {2, 2000000, &Load::reset},   {1, 50000, &Load::call_plain},
};

Load::Load(Rig& rig, const LoadOptions& options, uint32_t seed) : rig_(rig), options_(options) {
    for (const Worker& worker : kWorkers)
        for (int i = 0; i < worker.threads; ++i)
            threads_.emplace_back(&Load::work, this, std::cref(worker),
                                  seed * 64 + static_cast<uint32_t>(threads_.size()));
}

// Ends the threads after their turns.
Load::~Load() {
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        changed_.notify_all();
    }
    for (std::thread& thread : threads_) thread.join();
}

// Each thread has random numbers of its own, so a run with one seed sends the same events.
void Load::work(const Worker& worker, uint32_t seed) {
    Random random(seed);
    Mixture mixture(rig_.session(), seed + 1, options_.leaves_nothing);
    while (enter()) {
        (this->*worker.turn)(random, mixture);
        leave();
        std::this_thread::sleep_for(std::chrono::microseconds(below(random, worker.longest_rest_us)));
    }
}

// The end wins over a pause, so the destructor never waits for a paused thread.
bool Load::enter() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return stopped_ || !paused_; });
    running_ += stopped_ ? 0 : 1;
    return !stopped_;
}

void Load::leave() {
    const std::lock_guard lock(mutex_);
    --running_;
    changed_.notify_all();
}

// Returns when the last turn has ended. A thread that waits in enter does not begin another.
void Load::pause() {
    std::unique_lock lock(mutex_);
    paused_ = true;
    changed_.wait(lock, [this] { return running_ == 0; });
}

void Load::resume() {
    const std::lock_guard lock(mutex_);
    paused_ = false;
    changed_.notify_all();
}

// A wrong answer does not end the run: what follows from it is worth knowing.
void Load::expect(const char* call, int answer, std::initializer_list<int> allowed) {
    if (std::ranges::find(allowed, answer) != allowed.end()) return;
    ++wrong_answers_;
    fprintf(stderr, "soak: %s answered %d\n", call, answer);
}

// Mostly a few events, now and then more than the queue takes. Held events go in between, so that references end on
// this thread, too.
void Load::publish(Random& random, Mixture& mixture) {
    const uint32_t count = below(random, 20) == 0 ? 400 : 1 + below(random, 30);
    for (uint32_t i = 0; i < count; ++i) mixture.publish_one();
    if (below(random, 8) == 0) rig_.release_held();
}

void Load::configure(Random& random, Mixture&) {
    struct Row {
        const char* text;
        int answer;
    };
    // Good limits, limits outside their range, texts that are no numbers, and documents that are refused.
    static constexpr Row kRows[] = {
        {R"({"delay_time":"60000","queue_size":"100"})", 0},
        {R"({"delay_time":"120000","queue_size":"60"})", 0},
        {R"({"delay_time":"36000000","queue_size":"200"})", 0},
        {R"({"delay_time":"59999","queue_size":"0"})", 0},
        {R"({"delay_time":"no number","queue_size":"","more":[1]})", 0},
        {R"({"delay_time":60000,"queue_size":"100"})", -1},
        {R"({"delay_time":"60000"})", -1},
        {R"({"queue_size":"100"})", -1},
        {R"(["delay_time"])", -1},
        {"{", -1},
        {"", -1},
        {nullptr, -1},
    };
    // A text of size 0 and a null text of size 1 are among them; both are refused.
    const Row& row = kRows[below(random, std::size(kRows))];
    const auto size = static_cast<uint32_t>(row.text == nullptr ? 1 : strlen(row.text));
    expect("plugin_configuration_update", rig_.session().configure(row.text, size), {row.answer});
}

// Both traces may meet a reset period. The trace of a process needs the trace module, and in pure mode there is none.
void Load::trace(Random& random, Mixture&) {
    // A path with a control character gives a message that cannot be built.
    static constexpr const char* kPaths[] = {"/usr/bin/curl", "/tmp/\x01", "", nullptr};
    static constexpr const char* kDocuments[] = {"{}", "no message", nullptr};
    if (!options_.leaves_nothing && below(random, 4) != 0) {  // the builder's buffer of a file trace stays
        const char* const path = kPaths[below(random, std::size(kPaths))];
        const int answer =
            rig_.session().file_trace(path, "key", static_cast<int>(below(random, 3)), below(random, 100));
        expect("reshdl_file_trace", answer, {path == nullptr ? -1 : 0, -2});
    } else {
        const char* const data = kDocuments[below(random, std::size(kDocuments))];
        const auto size = static_cast<uint32_t>(data == nullptr ? 0 : strlen(data));
        const int answer = rig_.session().process_trace(data, size, below(random, 100));
        expect("reshdl_process_trace", answer, {data == nullptr ? -1 : 0, -1, -2});
    }
}

// A report that fits sets the figures to zero. Only some rounds can bear that while calls are running.
void Load::collect(Random& random, Mixture&) {
    static constexpr uint32_t kSizes[] = {0, 1, 2, 64, 65536};
    constexpr uint32_t kAll = std::size(kSizes);
    rig_.session().collect(kSizes[below(random, options_.reports_at_any_time ? kAll : kAll - 1)]);
}

// The period is short, because events that come in it are let go.
void Load::reset(Random& random, Mixture&) {
    if (!options_.resets) return;
    rig_.session().reset_begin();
    std::this_thread::sleep_for(std::chrono::microseconds(below(random, 20000)));
    rig_.session().reset_end();
}

// These three do nothing, but a host may call them at any time.
void Load::call_plain(Random&, Mixture&) {
    expect("plugin_start", rig_.session().plugin().start(), {0});
    expect("plugin_update", rig_.session().plugin().update(), {0});
    expect("plugin_stop", rig_.session().plugin().stop(), {0});
}

}  // namespace zelhost
