// A storm: 100 000 alerts against a trace module that cannot keep up. It accounts for each alert that the intake or the
// eliminator sheds, does each pass of the eliminator again from the log, and looks whether memory is as it was.
//
//   storm [ALERTS]
//
// Exit code 1 if anything does not hold, otherwise 0.
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
#include "host/load/checks.h"
#include "host/load/process_memory.h"
#include "host/load/publisher.h"
#include "longrun/rig.h"
#include "longrun/storm_account.h"
#include "platform/event_ids.h"

namespace {

using namespace zelhost;
using Clock = std::chrono::steady_clock;

constexpr uint64_t kQueueMax = 100;
// The same numbers stand in the settings of the rig below.
constexpr int kSkipLevel = 2;
// Memory is measured after these, when every cache and pool has its size.
constexpr uint64_t kWarmUp = 3000;
// Room for what the C library and the loader add by themselves.
constexpr int64_t kMostGrowthKib = 5 * 1024;

// What a trace costs in ticks of the storm's clock; both limits are included. At most 2 * 100 + 4 alerts of 20
// processes wait, and at 20000 ticks a process their sum stays far below what 32 bits hold.
std::atomic<int32_t> g_lowest_cost{5000};
std::atomic<int32_t> g_highest_cost{5000};
std::atomic<uint64_t> g_tick{1};

// Asked once for each thread, because its name does not change.
bool on_trace_worker() {
    thread_local const bool is = [] {
        char name[16] = {};
        prctl(PR_GET_NAME, name);
        return strcmp(name, "zelreshdl_trc") == 0;
    }();
    return is;
}

// The clock that the plug-in sees. The trace worker asks it before and after each trace, and only then. So half of each
// pair of calls adds the cost that the storm wants.
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

// How the storm blows for a while: how fast alerts come, what traces cost, how much delay is allowed.
struct Phase {
    const char* name;
    int percent;     // of the alerts
    int per_second;  // 0: as fast as the bus takes them
    int32_t lowest_cost;
    int32_t highest_cost;
    const char* delay_time;  // the eliminator's limit, milliseconds
};
constexpr Phase kPhases[] = {
    // The phases differ in what sheds: the full queues of the intake, the eliminator, or both.
    {"flat out, 5 s a trace", 20, 0, 5000, 5000, "60000"},
    {"steady, 5 s a trace", 20, 4000, 5000, 5000, "60000"},
    {"steady, up to 20 s a trace, ten minutes allowed", 20, 4000, 0, 20000, "600000"},
    {"steady, cheap traces, some of which cost nothing a process", 20, 4000, 0, 60, "60000"},
    {"flat out, up to 20 s a trace, an hour allowed", 20, 0, 0, 20000, "3600000"},
};

// Owns the rig and the account of the eliminator. Runs on the main thread.
class Storm {
public:
    Storm(uint64_t alerts)
        : alerts_(alerts),
          account_(alerts + kWarmUp, kSkipLevel),
          rig_(ZEL_AGENT_DIR,
               {parse_setting("zelreshdl:config:queue_max=100"), parse_setting("zelreshdl:config:interval=1"),
                parse_setting("zeltrc:standin:cost_ms=1"), parse_setting("zeltrc:trace_setting:skip_behavior_level=2")},
               [this](const LogLine& line) { account_.line(line); }),
          // The account reads each alert's number back from the GUID, so the numbers begin at 0.
          publisher_(rig_.session(), {.mix = parse_mix("graded=1")}, 0) {}

    bool run();

private:
    void blow(uint64_t alerts, int per_second);
    void settle();
    bool check(const char* what, uint64_t value, uint64_t most, bool exactly = false);
    bool sum_up();

    const uint64_t alerts_;
    StormAccount account_;
    Rig rig_;
    Publisher publisher_;
    bool good_ = true;
    int64_t growth_kib_ = 0;
};

void Storm::blow(uint64_t alerts, int per_second) {
    publisher_.begin({.per_second = static_cast<double>(per_second)});
    while (alerts > 0) {
        alerts -= publisher_.turn(alerts);
        publisher_.rest();
    }
}

void Storm::settle() {
    if (rig_.settle()) return;
    good_ = false;
    fmt::print("WRONG: not all has come to its end\n");
}

// Prints one check, whether it holds or not, and remembers a failure.
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
    const auto before = static_cast<int64_t>(resident_kib(Trim::yes));
    // Each phase ends at rest, so its figures are its own.
    for (const Phase& phase : kPhases) {
        const std::string settings =
            fmt::format(R"({{"delay_time":"{}","queue_size":"{}"}})", phase.delay_time, kQueueMax);
        rig_.session().configure(settings.c_str(), static_cast<uint32_t>(settings.size()));
        // Nothing waits between two phases, so no pass sees the old limit.
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
    // Held events would count as growth.
    rig_.release_held();
    growth_kib_ = static_cast<int64_t>(resident_kib(Trim::yes)) - before;
    fmt::print("resident memory {} KiB before, {} KiB more after\n", before, growth_kib_);
    // The figures of the plug-in are part of the checks.
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
    // The limits of the queues count inclusive, so each queue may hold one more. The trc queue may also get all that
    // the event queue held, and one that the alarm worker had in hand.
    check("event queue, longest", log.queues.event, kQueueMax + 1);
    check("trc queue, longest that the intake met", log.queues.trc, 2 * kQueueMax + 3);
    // The eliminator also counts the alert whose trace is running, which is one more.
    check("waiting for a trace or in one, most at once", log.most_waiting, 2 * kQueueMax + 3 + 1);
    check("alerts published", alerts.in, publisher_.published(), true);
    check("alerts shed at the intake, by lines", log.full_lines, alerts.queue_full, true);
    check("alerts shed at the intake and published as reports", alerts.queue_full + alerts.reported,
          publisher_.published(), true);
    check("reports whose trace has an end", account_.count_ended(), alerts.reported, true);
    check("ends of traces, by lines", static_cast<uint64_t>(ended_traces(totals)), alerts.reported, true);
    // A shed alert ends when its turn comes, so after the settling both numbers are equal.
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
    // A storm that sheds nothing has shown nothing.
    if (!shed) fmt::print("  WRONG: no storm, nothing was shed\n");
    good_ &= shed;
    if (kMeasureMemory)
        check("growth of resident memory, KiB", static_cast<uint64_t>(std::max<int64_t>(growth_kib_, 0)),
              kMostGrowthKib);
    const std::string failed =
        failed_text(check_account(account, {.longest_event_queue = log.queues.event, .outlived = rig_.outlived()}));
    fmt::print("{}storm: {}\n", failed, good_ && failed.empty() ? "all holds" : "NOT all holds");
    return good_ && failed.empty();
}

}  // namespace

int main(int argc, char** argv) {
    // Before the plug-in is loaded, so that it never sees another clock.
    clocks::replace_ticks(storm_ticks);
    try {
        return Storm(argc > 1 ? strtoull(argv[1], nullptr, 10) : 100000).run() ? 0 : 1;
    } catch (const std::exception& e) {
        fmt::print(stderr, "storm: {}\n", e.what());
        return 1;
    }
}
