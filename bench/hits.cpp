// What single steps cost: a hit of the hot cache, and the calls of a logger that writes nothing.
#include <cstdio>
#include <ctime>

#include "bench/documents.h"
#include "bench/measures.h"
#include "plugin/zelreshdl_dns.h"
#include "standin/lumutil/log_tap.h"
#include "suppress/fifoqueue.h"

namespace bench {
namespace {

constexpr int kRounds = 15;
constexpr int kBatch = 2000;

// The median of some rounds, in nanoseconds for each step of this thread.
template <class Step>
double step_ns(Step step) {
    std::vector<double> costs;
    for (int round = 0; round < kRounds; ++round) {
        timespec before{};
        timespec after{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
        for (int i = 0; i < kBatch; ++i) step(i);
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
        const int64_t ns = (after.tv_sec - before.tv_sec) * 1000000000L + after.tv_nsec - before.tv_nsec;
        costs.push_back(static_cast<double>(ns) / kBatch);
    }
    return quantile(costs, 0.5);
}

// A hit with the texts that an engine fills in; the process id tells the entries apart.
struct Hit {
    explicit Hit(uint32_t pid) {
        variant.uPid = pid;
        variant.llCreateTime = 1715000002000;
        for (const char*& text : variant.pszProcess) text = "6f1b2c3d-0000-4000-8000-000000000002";
        variant.pszProcess[1] = "/usr/bin/curl";
        variant.pszDomain = "updates.example.net";
        variant.pszDnsResults = "198.51.100.9";
        native.uKind = 2;
        native.ullHead[12] = 1715000002100;
        native.pVariant = &variant;
    }
    Hit(const Hit&) = delete;
    Hit& operator=(const Hit&) = delete;

    ST_DNS_VARIANT_2 variant{};
    ST_DNS_NATIVE native{};
};

}  // namespace

// The copy is the plug-in's own function, compiled into this program, without the key that it computes.
void hits(const Place& place, int entries) {
    Rig rig(place.agent, place.scripted, {"config:queue_max=500", "cache:cache_size=5000"});
    constexpr const char* kName = "updates.example.net";
    Hit hit(0);
    for (int i = 0; i < entries; ++i) {
        hit.variant.uPid = static_cast<uint32_t>(i);
        rig.publish(hit.native, kName);
        if (i % 400 == 399 || i == entries - 1) rig.await_sent(static_cast<uint64_t>(i) + 1);
    }
    const double whole = step_ns([&](int i) {
        hit.variant.uPid = static_cast<uint32_t>(i % entries);
        rig.publish(hit.native, kName);
    });
    DnsEvent event(hit.native, kName);
    const double copy = step_ns([&](int) { copy_dns_event(event); });
    const double key = step_ns(
        [&](int i) { ResHdlCache::CFifoQueue::CalculateHash(kName, i, hit.variant.pszProcess[1], hit.variant.uPid); });
    printf("hot cache of %d entries: a hit %.0f ns, its copy %.0f ns, its key %.0f ns, beyond the copy %.0f ns\n",
           entries, whole, copy - key, key, whole - copy + key);
}

void log_off(const Place& place, int events) {
    Rig rig(place.agent, place.scripted, {"config:queue_max=500"});
    const std::string text = make_document(events);
    play(rig, text, 1);
    uint64_t lines = 0;
    zel_log_set_tap([](void* count, int32_t, const char*) { ++*static_cast<uint64_t*>(count); }, &lines);
    play(rig, text, 1);
    zel_log_set_tap(nullptr, nullptr);
    const double call = step_ns([](int i) {
        zel_log_output(ZEL_LOG_DEBUG, "[PID:%-5ld]\t[DEBUG]\t%-10s [%s(%d)] [work queue count : %d]", 1L, "[zelreshdl]",
                       "hits.cpp", 1, i);
    });
    std::vector<double> costs;
    for (int round = 0; round < kRounds; ++round) costs.push_back(cost_ns(rig, text, 100));
    const double cost = quantile(costs, 0.5);
    printf("logger that writes nothing, %d events: %lu calls of %.1f ns, %.2f %% of the alert\n", events, lines, call,
           100 * static_cast<double>(lines) * call / cost);
}

}  // namespace bench
