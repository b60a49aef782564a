// Refused alerts, full queues, and memory over time.
#include <sys/resource.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "bench/documents.h"
#include "bench/measures.h"
#include "platform/zel_trc.h"

namespace bench {
namespace {

const std::vector<std::string> kRoomySettings = {"config:queue_max=500", "config:interval=1"};

int64_t page_faults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// The document with the last of these texts replaced.
std::string replaced(std::string document, std::string_view what, std::string_view by) {
    const size_t at = document.rfind(what);
    return document.replace(at, what.size(), by);
}

// A document whose rules have names of their own, so that it repeats no other one.
std::string numbered(const std::string& document, int number) {
    return replaced(document, "\"R-1000\"", "\"N-" + std::to_string(number) + "\"");
}

// A refused alert sends nothing, so a small accepted one behind them tells that all were handled.
void print_cost(Rig& rig, const char* what, const std::string& document, bool accepted, const std::string& small) {
    constexpr int kBatch = 100;
    constexpr int kRounds = 15;
    std::vector<double> costs;
    const int64_t faults = page_faults();
    for (int round = 0; round < kRounds; ++round) {
        const int64_t before = cpu_ns();
        const uint64_t sent = rig.sent();
        for (int i = 0; i < kBatch; ++i) rig.publish(document);
        rig.publish(small);
        rig.await_sent(sent + 1 + (accepted ? kBatch : 0));
        costs.push_back(static_cast<double>(cpu_ns() - before) / kBatch);
    }
    printf("%s: %.1f us, %.1f page faults\n", what, quantile(costs, 0.5) / 1000,
           static_cast<double>(page_faults() - faults) / kBatch / kRounds);
}

}  // namespace

// What stays of a refused one is the agent's rule; the table in docs/decisions.md names it.
void refused(const Place& place, int events) {
    Rig rig(place.agent, place.scripted, kRoomySettings);
    const std::string accepted = make_document(events);
    const std::string small = make_document(1);
    play(rig, accepted, 100);
    printf("alerts of %d events\n", events);
    print_cost(rig, "  accepted", accepted, true, small);
    print_cost(rig, "  refused at its first key", replaced(accepted, "\"alert_type\"", "\"alert_tape\""), false, small);
    print_cost(rig, "  refused in its last event", replaced(accepted, "\"OpTime\"", "\"OpTame\""), false, small);
    print_cost(rig, "  refused for its GUID", replaced(accepted, "\"Guid\"", "\"Gaid\""), false, small);
}

// The three queues are filled one after the other: first the retries, then the new traces behind one that is held, then
// the events behind an alert that is held.
void full_queues(const Place& place, int events) {
    constexpr int kMost = 100;
    Rig rig(place.agent, place.scripted,
            {"config:queue_max=100", "config:interval=1", "config:disable_scan_scenario_limit=0"});
    const std::string document = make_document(events);
    std::atomic<bool> hold_trace{false};
    std::atomic<bool> hold_alarm{false};
    std::atomic<int> traces{0};
    const auto wait_while = [](const std::atomic<bool>& held) {
        while (held) std::this_thread::sleep_for(1ms);
    };
    rig.trace = [&] {
        ++traces;
        wait_while(hold_trace);
        return ZEL_TRC_NOT_READY;
    };
    rig.on_sent = [&] { wait_while(hold_alarm); };
    const int64_t before = resident_kib();
    int number = 0;
    const auto publish_one = [&] {
        rig.publish(numbered(document, number++));
        rig.await_sent(static_cast<uint64_t>(number));
    };
    for (int i = 0; i < kMost; ++i) publish_one();
    while (traces < kMost) std::this_thread::sleep_for(1ms);
    hold_trace = true;
    for (int i = 0; i <= kMost; ++i) publish_one();
    hold_alarm = true;
    for (int i = 0; i <= kMost; ++i) rig.publish(numbered(document, number++));
    std::this_thread::sleep_for(100ms);
    printf("three queues of %d alerts of %.1f MB: %.1f MB resident, %.1f MB before\n", kMost,
           static_cast<double>(document.size()) / 1e6, static_cast<double>(resident_kib()) / 1024,
           static_cast<double>(before) / 1024);
    hold_trace = false;
    hold_alarm = false;
}

void long_run(const Place& place, int thousands) {
    Rig rig(place.agent, place.scripted, kRoomySettings);
    const std::string small = make_document(1);
    const std::string large = make_document(15);
    const std::string bad = replaced(small, "\"risk_level\"", "\"risk_lovel\"");
    constexpr int kBatch = 100;
    const int tenth = thousands * 100;
    for (int done = 0; done <= thousands * 1000; done += kBatch) {
        if (done % tenth == 0)
            printf("after %d alerts: %.1f MB resident\n", done, static_cast<double>(resident_kib()) / 1024);
        const uint64_t sent = rig.sent();
        // Of a hundred ten are refused, forty repeat, forty are new as far as a thousand names go, ten are large.
        for (int i = 0; i < kBatch; ++i) {
            if (i % 10 == 0)
                rig.publish(bad);
            else if (i % 10 < 5)
                rig.publish(small);
            else if (i % 10 < 9)
                rig.publish(numbered(small, (done + i) % 1000));
            else
                rig.publish(large);
        }
        rig.await_sent(sent + kBatch - kBatch / 10);
    }
}

}  // namespace bench
