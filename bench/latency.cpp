// How soon a report leaves, and how soon again after an overload. The program's own usleep wins over that of the C
// library, so the end of each idle sleep is known.
#include <sys/prctl.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <thread>

#include "bench/documents.h"
#include "bench/measures.h"

namespace {

using bench::Clock;

// When the calling thread's last sleep should have ended, and when it did.
thread_local Clock::time_point t_due;
thread_local Clock::time_point t_awake;

}  // namespace

extern "C" __attribute__((visibility("default"))) int usleep(useconds_t microseconds) {
    t_due = Clock::now() + std::chrono::microseconds(microseconds);
    const timespec time{static_cast<time_t>(microseconds / 1000000), static_cast<long>(microseconds % 1000000) * 1000};
    const int result = nanosleep(&time, nullptr);
    t_awake = Clock::now();
    return result;
}

namespace bench {
namespace {

double microseconds(Clock::duration time) { return std::chrono::duration<double, std::micro>(time).count(); }

std::vector<std::string> settings(int interval_ms) {
    return {"config:queue_max=100", "config:interval=" + std::to_string(interval_ms)};
}

void print(const char* what, const Latencies& latencies) {
    printf("%s: median %.0f us, 99 of 100 below %.0f us; from the wake-up %.0f and %.0f us\n", what,
           quantile(latencies.from_due, 0.5), quantile(latencies.from_due, 0.99), quantile(latencies.from_awake, 0.5),
           quantile(latencies.from_awake, 0.99));
}

}  // namespace

Latencies latencies_us(Rig& rig, const std::string& document, int interval_ms, int count) {
    Latencies seen;
    std::minstd_rand random(7);
    std::uniform_int_distribution<int> phase(0, interval_ms * 1000);
    rig.on_sent = [&] {
        const auto now = Clock::now();
        seen.from_due.push_back(microseconds(now - t_due));
        seen.from_awake.push_back(microseconds(now - t_awake));
    };
    for (int i = 0; i < count; ++i) {
        // At any moment of the worker's sleep, and never so late that the end of this function meets a report.
        std::this_thread::sleep_for(std::chrono::milliseconds(interval_ms) + std::chrono::microseconds(phase(random)));
        play(rig, document, 1);
    }
    rig.on_sent = nullptr;
    return seen;
}

void latency(const Place& place, int interval) {
    Rig rig(place.agent, place.scripted, settings(interval));
    const std::string text = make_document(1);
    latencies_us(rig, text, interval, 5);
    const std::string what = "latency beyond a sleep of " + std::to_string(interval) + " ms";
    print(what.c_str(), latencies_us(rig, text, interval, interval < 50 ? 400 : 150));
}

// The pace is kept by the clock: each millisecond gets its share of alerts.
void recovery(const Place& place, int) {
    constexpr int kInterval = 5;
    Rig rig(place.agent, place.scripted, settings(kInterval));
    const std::string text = make_document(1);
    play(rig, text, 100);
    const Clock::time_point before = Clock::now();
    for (int i = 0; i < 100; ++i) play(rig, text, 100);
    const double for_each_ms = 3 * 10000 / (microseconds(Clock::now() - before) / 1000);
    print("before the overload", latencies_us(rig, text, kInterval, 200));

    const uint64_t sent = rig.sent();
    uint64_t published = 0;
    const Clock::time_point start = Clock::now();
    for (Clock::duration gone{}; gone < 10s; gone = Clock::now() - start) {
        const auto due = static_cast<uint64_t>(microseconds(gone) / 1000 * for_each_ms);
        for (; published < due; ++published) rig.publish(text);
        std::this_thread::sleep_for(1ms);
    }
    const Clock::time_point end = Clock::now();
    std::this_thread::sleep_for(2s);
    printf("overload: %lu alerts in 10 s, %lu reported, the last one %.1f ms after the end\n", published,
           rig.sent() - sent, microseconds(rig.last_sent() - end) / 1000);
    print("2 s after the overload", latencies_us(rig, text, kInterval, 200));
}

}  // namespace bench
