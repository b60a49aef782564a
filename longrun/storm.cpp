// A storm: 100 000 alerts against a trace module that cannot keep up. What is shed at the intake and by the eliminator
// is accounted for alert by alert, each pass of the eliminator is done again from the log, and memory is as it was.
//
//   storm [ALERTS]
//
// Ends with 1 if anything does not hold.
#include <fmt/format.h>
#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "host/lib/account_text.h"
#include "host/lib/clocks.h"
#include "longrun/checks.h"
#include "longrun/incoming.h"
#include "longrun/rig.h"
#include "longrun/storm_account.h"
#include "platform/event_ids.h"

namespace {

using namespace zelhost;
using Clock = std::chrono::steady_clock;

constexpr uint64_t kQueueMax = 100;
constexpr int kSkipLevel = 2;
constexpr uint64_t kWarmUp = 3000;
constexpr int64_t kMostGrowthKib = 5 * 1024;

// Ticks that a trace costs, both inclusive. The most that can wait is 2 * 100 + 4 alerts of 20 processes, which at
// 20000 a process stays far below what 32 bits hold.
std::atomic<int32_t> g_lowest_cost{5000};
std::atomic<int32_t> g_highest_cost{5000};
std::atomic<uint64_t> g_tick{1};

// Asked once a thread: its name does not change.
bool on_trace_worker() {
    thread_local const bool is = [] {
        char name[16] = {};
        prctl(PR_GET_NAME, name);
        return strcmp(name, "zelreshdl_trc") == 0;
    }();
    return is;
}

// The trace worker asks before and after each trace, and only then: half of the difference comes with each call.
uint64_t storm_ticks() {
    if (!on_trace_worker()) return g_tick;
    thread_local Random random(1);
    thread_local uint32_t half = 0;
    thread_local bool inside = false;
    inside = !inside;
    if (!inside) return g_tick += half;
    const auto lowest = static_cast<uint32_t>(g_lowest_cost.load());
    half = lowest + below(random, static_cast<uint32_t>(g_highest_cost.load()) - lowest + 1);
    return g_tick;
}

// How the storm blows for a while.
struct Phase {
    const char* name;
    int percent;     // of the alerts
    int per_second;  // 0: as fast as the bus takes them
    int32_t lowest_cost;
    int32_t highest_cost;
    const char* delay_time;  // the eliminator's limit, milliseconds
};
constexpr Phase kPhases[] = {
    {"flat out, 5 s a trace", 20, 0, 5000, 5000, "60000"},
    {"steady, 5 s a trace", 20, 4000, 5000, 5000, "60000"},
    {"steady, up to 20 s a trace, ten minutes allowed", 20, 4000, 0, 20000, "600000"},
    {"steady, cheap traces, some of which cost nothing a process", 20, 4000, 0, 60, "60000"},
    {"flat out, up to 20 s a trace, an hour allowed", 20, 0, 0, 20000, "3600000"},
};

std::string storm_alert(uint64_t number) {
    constexpr const char* kLevels[] = {"none", "Verbose", "Low", "Medium", "High", "Critical"};
    // Levels and sizes do not keep step, so that each level has alerts of each size.
    const int events = 1 + static_cast<int>(number / std::size(kLevels) % 20);
    return alert_text({.number = number, .level = kLevels[number % std::size(kLevels)], .events = events});
}

class Storm {
public:
    Storm(uint64_t alerts)
        : alerts_(alerts),
          account_(alerts + kWarmUp, kSkipLevel),
          rig_(ZEL_AGENT_DIR,
               {parse_setting("zelreshdl:config:queue_max=100"), parse_setting("zelreshdl:config:interval=1"),
                parse_setting("zeltrc:standin:cost_ms=1"), parse_setting("zeltrc:trace_setting:skip_behavior_level=2")},
               [this](std::string_view line) { account_.line(line); }) {}

    bool run();

private:
    void blow(uint64_t alerts, int per_second);
    void settle();
    bool check(const char* what, uint64_t value, uint64_t most, bool exactly = false);
    bool sum_up();

    const uint64_t alerts_;
    StormAccount account_;
    Rig rig_;
    uint64_t published_ = 0;
    bool good_ = true;
    int64_t growth_kib_ = 0;
};

// In groups of a hundred, since a sleep a document would be too coarse.
void Storm::blow(uint64_t alerts, int per_second) {
    const auto begin = Clock::now();
    for (uint64_t i = 0; i < alerts; ++i) {
        if (per_second != 0 && i % 100 == 0)
            std::this_thread::sleep_until(begin +
                                          std::chrono::microseconds(i * 1000000 / static_cast<uint64_t>(per_second)));
        const std::string text = storm_alert(published_++);
        rig_.session().publish(event_id::ioa_alert, text.data(), text.size());
    }
}

void Storm::settle() {
    if (rig_.settle()) return;
    good_ = false;
    fmt::print("WRONG: not all has come to its end\n");
}

bool Storm::check(const char* what, uint64_t value, uint64_t most, bool exactly) {
    const bool holds = exactly ? value == most : value <= most;
    fmt::print("  {}{:<58} {:>8} {} {}\n", holds ? "" : "WRONG: ", what, value, exactly ? "=" : "<=", most);
    good_ &= holds;
    return holds;
}

bool Storm::run() {
    rig_.start();
    blow(kWarmUp, 0);
    settle();
    rig_.release_held();
    const auto before = static_cast<int64_t>(resident_kib());
    for (const Phase& phase : kPhases) {
        const std::string settings =
            fmt::format(R"({{"delay_time":"{}","queue_size":"{}"}})", phase.delay_time, kQueueMax);
        rig_.session().configure(settings.c_str(), static_cast<uint32_t>(settings.size()));
        account_.set_limit(atoll(phase.delay_time));
        g_lowest_cost = phase.lowest_cost;
        g_highest_cost = phase.highest_cost;
        const StormFigures start = account_.figures();
        const auto begin = Clock::now();
        blow(alerts_ * static_cast<uint64_t>(phase.percent) / 100, phase.per_second);
        settle();
        const StormFigures end = account_.figures();
        const std::chrono::duration<double> took = Clock::now() - begin;
        fmt::print("{}: {:.1f} s; shed at the intake {}, passes {}, of these shedding {}, alerts shed by them {}\n",
                   phase.name, took.count(), end.full_lines - start.full_lines, end.passes - start.passes,
                   end.shedding_passes - start.shedding_passes, end.drops - start.drops);
    }
    rig_.release_held();
    growth_kib_ = static_cast<int64_t>(resident_kib()) - before;
    fmt::print("resident memory {} KiB before, {} KiB more after\n", before, growth_kib_);
    rig_.session().collect();
    rig_.stop();
    return sum_up();
}

bool Storm::sum_up() {
    const Account account = rig_.session().account();
    const Totals& totals = account.totals;
    const StormFigures log = account_.figures();
    const KindFigures alerts = totals.of(event_id::ioa_alert);
    fmt::print("{}", account_text(account, End::quiet));
    check("event queue, longest", log.longest_event_queue, kQueueMax + 1);
    check("trc queue, longest that the intake met", log.longest_trc_queue, 2 * kQueueMax + 3);
    check("waiting for a trace or in one, most at once", log.most_waiting, 2 * kQueueMax + 3 + 1);
    check("alerts published", alerts.in, published_, true);
    check("alerts shed at the intake, by lines", log.full_lines, alerts.queue_full, true);
    check("alerts shed at the intake and published as reports", alerts.queue_full + alerts.reported, published_, true);
    check("reports whose trace has an end", account_.count_ended(), alerts.reported, true);
    check("ends of traces, by lines", static_cast<uint64_t>(ended_traces(totals)), alerts.reported, true);
    check("alerts shed by the eliminator, by lines", log.drops, totals.sum(&KindFigures::dropped), true);
    check("of these ended as dropped", log.settled, log.drops, true);
    check("faults in the passes", account_.fault_count(), 0, true);
    for (const std::string& fault : account_.faults()) fmt::print("    {}\n", fault);
    fmt::print(
        "  {} passes, {} shedding: {} overshot, {} ran out of alerts, {} told what they saved; largest prediction {} "
        "ms; {} alerts went before a younger, milder one\n",
        log.passes, log.shedding_passes, log.overshoots, log.exhausted, log.savings_lines, log.largest_prediction,
        log.older_severe);
    const bool shed = log.full_lines > 0 && log.shedding_passes > 0 && log.savings_lines > 0;
    if (!shed) fmt::print("  WRONG: no storm, nothing was shed\n");
    good_ &= shed;
    if (kMeasureMemory)
        check("growth of resident memory, KiB", static_cast<uint64_t>(std::max<int64_t>(growth_kib_, 0)),
              kMostGrowthKib);
    const std::string failed = failed_text(
        check_account(account, {.longest_event_queue = log.longest_event_queue, .outlived = rig_.outlived()}));
    fmt::print("{}storm: {}\n", failed, good_ && failed.empty() ? "all holds" : "NOT all holds");
    return good_ && failed.empty();
}

}  // namespace

int main(int argc, char** argv) {
    clocks::replace_ticks(storm_ticks);
    try {
        return Storm(argc > 1 ? strtoull(argv[1], nullptr, 10) : 100000).run() ? 0 : 1;
    } catch (const std::exception& e) {
        fmt::print(stderr, "storm: {}\n", e.what());
        return 1;
    }
}
