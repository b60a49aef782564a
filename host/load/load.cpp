#include "host/load/load.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iterator>
#include <utility>

#include "host/lib/console.h"

namespace zelhost {
namespace {

// The processor time of a thread that runs, in nanoseconds; 0 when the system does not tell.
int64_t cpu_ns(std::thread& thread) {
    clockid_t clock{};
    timespec time{};
    if (pthread_getcpuclockid(thread.native_handle(), &clock) != 0 || clock_gettime(clock, &time) != 0) return 0;
    return time.tv_sec * 1'000'000'000L + time.tv_nsec;
}

}  // namespace

// One kind of thread: how many there are, and what each does in a turn.
struct Load::Worker {
    int threads;
    uint32_t longest_rest_us;  // between two turns
    void (Load::*turn)(Random& random);
};
// Two threads reset, so that their reset periods overlap.
const Load::Worker Load::kWorkers[] = {
    {1, 20000, &Load::configure}, {2, 40000, &Load::trace},      {2, 30000, &Load::collect},
    {2, 2000000, &Load::reset},   {1, 50000, &Load::call_plain},
};

// Mixtures have the numbers from 1 on. Each thread has random numbers of its own, so a load with one seed makes the
// same events and calls.
Load::Load(Session& session, const LoadPlan& plan, DueTimes* due_times, std::function<void()> now_and_then)
    : session_(session), plan_(plan), now_and_then_(std::move(now_and_then)) {
    for (uint32_t number = 1; number <= plan.publishers; ++number)
        publishers_.push_back(std::make_unique<Publisher>(session, plan.events, number, due_times));
    // A thread that cannot be started ends those that run already. The destructor does not run for
    // an object whose constructor throws.
    try {
        for (const auto& publisher : publishers_)
            threads_.emplace_back(&Load::publish, this, std::ref(*publisher), static_cast<uint32_t>(threads_.size()));
        for (const Worker& worker : kWorkers)
            for (int i = 0; plan.calls && i < worker.threads; ++i)
                threads_.emplace_back(&Load::work, this, std::cref(worker), static_cast<uint32_t>(threads_.size()));
    } catch (...) {
        stop();
        throw;
    }
}

Load::~Load() { stop(); }

// Ends the threads after their turns.
void Load::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        changed_.notify_all();
    }
    for (std::thread& thread : threads_) thread.join();
}

void Load::work(const Worker& worker, uint32_t seed) {
    // Each thread has a seed of its own, which follows from the seed of the load and from the
    // number of the thread.
    Random random(plan_.events.seed * 64 + seed);
    while (enter() != 0) {
        (this->*worker.turn)(random);
        leave();
        // The rest is of random length, so that the calls of different threads meet at ever new
        // moments.
        std::this_thread::sleep_for(std::chrono::microseconds(below(random, worker.longest_rest_us)));
    }
}

// By default the kernel may wake a sleeper 50 microseconds late, which is the time between two events at a high rate.
void Load::publish(Publisher& publisher, uint32_t seed) {
    prctl(PR_SET_TIMERSLACK, 1UL);
    Random random(plan_.events.seed * 64 + seed);
    uint64_t round = 0;
    while (const uint64_t now = enter()) {
        // The load has gone on after a pause. The time of the pause is not made up for: the pace
        // begins anew.
        if (std::exchange(round, now) != now)
            publisher.begin({plan_.pace.per_second / plan_.publishers, plan_.pace.bursts});
        // An exception that left the thread would end the process. The publisher goes on with the
        // next turn instead.
        try {
            publisher.turn();
            if (now_and_then_ && below(random, 8) == 0) now_and_then_();
        } catch (const std::exception& e) {
            ++wrong_answers_;
            console::say("cannot publish an event: {}", e.what());
        }
        leave();
        publisher.rest();
    }
}

// The end wins over a pause, so the destructor never waits for a paused thread.
uint64_t Load::enter() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return stopped_ || !paused_; });
    // Both are decided under one lock: a turn is either counted before a pause looks at the count,
    // or it does not begin.
    running_ += stopped_ ? 0 : 1;
    return stopped_ ? 0 : rounds_;
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
    // The publishers may still be asleep between two turns. They meet the pause when they wake.
    changed_.wait(lock, [this] { return running_ == 0; });
}

void Load::resume() {
    const std::lock_guard lock(mutex_);
    paused_ = false;
    ++rounds_;
    changed_.notify_all();
}

uint64_t Load::published() const {
    uint64_t sum = 0;
    for (const auto& publisher : publishers_) sum += publisher->published();
    return sum;
}

Publisher::Clock::duration Load::latest() const {
    Publisher::Clock::duration latest{};
    for (const auto& publisher : publishers_) latest = std::max(latest, publisher->latest());
    return latest;
}

int64_t Load::publishers_cpu_ns() {
    int64_t sum = 0;
    // The publishers are the first threads, in their order.
    for (size_t i = 0; i < publishers_.size(); ++i) sum += cpu_ns(threads_[i]);
    return sum;
}

// A wrong answer does not end the run: what follows from it is worth knowing.
void Load::expect(const char* call, int answer, std::initializer_list<int> allowed) {
    if (std::ranges::find(allowed, answer) != allowed.end()) return;
    ++wrong_answers_;
    console::say("{} answered {}", call, answer);
}

void Load::configure(Random& random) {
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
    expect("plugin_configuration_update", session_.configure(row.text, size), {row.answer});
}

// Both traces may meet a reset period. The trace of a process needs the trace module, and in pure mode there is none.
void Load::trace(Random& random) {
    // A path with a control character gives a message that cannot be built.
    static constexpr const char* kPaths[] = {"/usr/bin/curl", "/tmp/\x01", "", nullptr};
    static constexpr const char* kDocuments[] = {"{}", "no message", nullptr};
    if (plan_.file_traces && below(random, 4) != 0) {  // the builder's buffer of a file trace stays
        const char* const path = kPaths[below(random, std::size(kPaths))];
        const int answer = session_.file_trace(path, "key", static_cast<int>(below(random, 3)), below(random, 100));
        expect("reshdl_file_trace", answer, {path == nullptr ? -1 : 0, -2});
    } else {
        const char* const data = kDocuments[below(random, std::size(kDocuments))];
        const auto size = static_cast<uint32_t>(data == nullptr ? 0 : strlen(data));
        const int answer = session_.process_trace(data, size, below(random, 100));
        expect("reshdl_process_trace", answer, {data == nullptr ? -1 : 0, -1, -2});
    }
}

// A report that fits sets the figures to zero. Only some rounds can bear that while calls are running.
void Load::collect(Random& random) {
    static constexpr uint32_t kSizes[] = {0, 1, 2, 64, 65536};
    // All sizes but the last are too small for a report. The plug-in then refuses and keeps its
    // figures.
    constexpr uint32_t kAll = std::size(kSizes);
    session_.collect(kSizes[below(random, plan_.reports_at_any_time ? kAll : kAll - 1)]);
}

// The period is short, because events that come in it are let go.
void Load::reset(Random& random) {
    if (!plan_.resets) return;
    session_.reset_begin();
    std::this_thread::sleep_for(std::chrono::microseconds(below(random, 20000)));
    session_.reset_end();
}

// These three do nothing, but a host may call them at any time.
void Load::call_plain(Random&) {
    expect("plugin_start", session_.plugin().start(), {0});
    expect("plugin_update", session_.plugin().update(), {0});
    expect("plugin_stop", session_.plugin().stop(), {0});
}

}  // namespace zelhost
