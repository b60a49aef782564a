// A soak: mixed load from several threads, in rounds. Each round runs in a process of its own, because a plug-in
// attaches to the bus once in its life. A round starts the pipeline, loads it and stops it. Then it starts and stops it
// again while on-demand traces go on. At its end every event that went in has an end that a log line or a counter
// names.
//
//   soak [SECONDS [SEED]]
//
// Prints a balance for each round. Exit code 1 if a figure differs or a round did not end well, otherwise 0.
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "host/lib/account_text.h"
#include "host/lib/agent_folder.h"
#include "host/lib/clocks.h"
#include "host/load/checks.h"
#include "host/load/load.h"
#include "host/load/process_memory.h"
#include "longrun/rig.h"
#include "longrun/slope.h"

namespace {

using namespace std::chrono_literals;
using namespace zelhost;
using clocks::machine_now;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// How a round is made, and by which terms it is judged.
struct RoundKind {
    const char* name;
    std::vector<const char*> settings;
    LoadPlan load;
    Terms terms;
};
// Three threads publish in bursts beside all other calls. The rest leaves room for events to be handled, not only shed.
LoadPlan usual_load() {
    return {.events = {}, .publishers = 3, .pace = {.per_second = 4000, .bursts = true}, .calls = true};
}
LoadPlan load_with_resets(bool reports_at_any_time) {
    LoadPlan plan = usual_load();
    plan.resets = true;
    plan.reports_at_any_time = reports_at_any_time;
    return plan;
}
LoadPlan load_that_leaves_nothing() {
    LoadPlan plan = usual_load();
    plan.events.mix = mix_that_leaves_nothing();
    plan.file_traces = false;
    return plan;
}

// Each kind meets limits that the others do not meet.
const RoundKind kRounds[] = {
    {"traces put off once, failed and dropped; every event to its end",
     {"zeltrc:standin:not_ready_times=1", "zeltrc:standin:cost_ms=1", "zeltrc:standin:fail_every=7",
      "zeltrc:standin:drop_every=11"},
     usual_load(),
     {}},
    {"resets and reports at any time, stopped under load",
     {"zeltrc:standin:cost_ms=3", "zelreshdl:cache:cache_size=50"},
     load_with_resets(true),
     {.settled = false, .resets = true}},
    {"traces given up, partial results, stopped under load",
     {"zeltrc:standin:not_ready_times=3", "zeltrc:standin:fail_every=3", "zeltrc:standin:drop_every=5",
      "zeltrc:standin:partial_result=1", "zelreshdl:config:trc_times=3"},
     usual_load(),
     {.settled = false, .partial_results = true}},
    {"resets, every event to its end",
     {"zelreshdl:cache:die_num=100", "zelreshdl:cache:cache_size=10", "zelreshdl:config:trace_val=10"},
     load_with_resets(false),
     {.resets = true}},
    {"no tracing, which fills no queue", {"zelreshdl:config:trc_times=0"}, usual_load(), {}},
    {"pure mode, in which nobody takes a trace",
     {"zel_pure_mode:advthreats_module:enable=0"},
     usual_load(),
     {.settled = false}},
};
// The second half of a soak is one round of this kind, in one process. Nothing of it stays allocated on purpose, so its
// memory must not grow.
const RoundKind kSteady = {"nothing that stays allocated; memory over time", {}, load_that_leaves_nothing(), {}};
// The shortest ages that the cache allows, so that entries die out within a round.
constexpr const char* kCommon[] = {"zelreshdl:config:interval=1", "zelreshdl:cache:die_check_time=1",
                                   "zelreshdl:cache:die_time_linux=1"};

// These count time of the machine; the plug-in's own clock runs faster.
constexpr milliseconds kLongestRound = 5min;
constexpr milliseconds kShortestRound = 5s;
constexpr milliseconds kBetweenPauses = 5s;
// Of the steady round, so that a short one has enough of them for a slope.
constexpr milliseconds kShortestBetweenPauses = 500ms;
constexpr int kPausesWanted = 60;
// What a slope may be at most, KiB a minute, beyond twice its error. An hour of the plug-in's time passes in a minute.
constexpr double kSteepest = 64;
// Resident memory goes up and down by this much while nothing is kept: neighbouring rests are alike, because the
// allocator gives pages back in its own time. A quarter of a minute may therefore rise by it. Even so one block of
// 32 bytes that each alert leaves behind is seen in a soak of one minute.
constexpr double kWanderKib = 448;
// What a round may take beyond its length: restarts, the last rest, a slow machine.
constexpr unsigned kGraceSeconds = 240;
// Enough to see what a start leaves behind for the next one.
constexpr int kRestarts = 3;
constexpr int kClockSpeed = 60;  // a minute of the run is an hour of the plug-in's

// What a round may add to its memory: 4 MiB of its own, and what the plug-in keeps on purpose. These are the nodes of
// ignored events, the builder's buffers of file traces and the trees of documents without a GUID.
uint64_t allowed_growth_kib(const Totals& totals) {
    return 4096 + totals.sum(&KindFigures::ignored) + totals.file_traces / 2 + totals.sum(&KindFigures::undecoded) * 2;
}

std::vector<Setting> parsed(std::span<const char* const> texts) {
    std::vector<Setting> list;
    for (const char* text : texts) list.push_back(parse_setting(text));
    return list;
}

// One round: owns the rig, and so the plug-in, for as long as its process lives. One thread, beside those of the load.
class Round {
public:
    Round(const std::string& agent, const RoundKind& kind, milliseconds length, uint32_t seed)
        : kind_(kind),
          length_(length),
          between_pauses_(std::clamp(length / kPausesWanted, kShortestBetweenPauses, kBetweenPauses)),
          seed_(seed),
          rig_(agent, parsed(kind.settings)) {}

    bool run();

private:
    void load_until(Load& load, steady_clock::time_point end);
    void rest(Load& load);
    void settle();
    void stop();
    bool sum_up();
    void check_memory(const Totals& totals, std::vector<Check>& checks) const;

    const RoundKind& kind_;
    const milliseconds length_;
    const milliseconds between_pauses_;
    const uint32_t seed_;
    Rig rig_;
    Left discarded_;  // by the stops so far
    uint64_t wrong_ = 0;
    std::vector<Sample> resident_;  // KiB at each rest, by minutes
    size_t rests_under_load_ = 0;   // the others belong to restarts
};

// A round goes on after a failure, since its balance then tells what is missing.
void Round::settle() {
    if (rig_.settle(discarded_)) return;
    ++wrong_;
    fmt::print("  WRONG: not all has come to its end\n");
}

// Nothing runs and no event is held. So the figures are exact, memory is what is really kept, and a stop leaves no
// result of the trace module to an event that outlives the module.
void Round::rest(Load& load) {
    load.pause();
    settle();
    rig_.release_held();
    rig_.session().collect();
    const auto now = std::chrono::duration<double, std::ratio<60>>(machine_now().time_since_epoch());
    resident_.push_back({now.count(), static_cast<double>(resident_kib(Trim::yes))});
}

void Round::load_until(Load& load, steady_clock::time_point end) {
    while (machine_now() < end) {
        std::this_thread::sleep_for(std::min<steady_clock::duration>(between_pauses_, end - machine_now()));
        // A round that is stopped under load is never at rest.
        if (!kind_.terms.settled) continue;
        rest(load);
        load.resume();
    }
}

// What a stop takes out of the queues is gone without a line. From here on it counts as lost.
void Round::stop() {
    rig_.stop();
    discarded_ = rig_.session().account().left;
}

bool Round::run() {
    const auto end = machine_now() + length_;
    rig_.start();
    {
        LoadPlan plan = kind_.load;
        plan.events.seed = seed_;
        // A slow subscriber: references end on the threads that publish, too.
        Load load(rig_.session(), plan, nullptr, [this] { rig_.release_held(); });
        load_until(load, end);
        if (kind_.terms.settled) rest(load);
        rests_under_load_ = resident_.size();
        stop();
        // The second and later starts do not attach to the bus again, so on-demand traces are all that comes.
        for (int i = 0; i < kRestarts; ++i) {
            rig_.start();
            load.resume();
            std::this_thread::sleep_for(length_ / 50);
            if (kind_.terms.settled) rest(load);
            stop();
        }
        load.pause();
        // Read when no thread is in a call.
        wrong_ += load.wrong_answers();
    }
    rig_.release_held();
    return sum_up();
}

// The first rest is the measure: by then every pool and cache has its size. The steady round is judged by its second
// half, which is the last quarter of a soak.
void Round::check_memory(const Totals& totals, std::vector<Check>& checks) const {
    if (!kMeasureMemory || resident_.empty()) return;
    checks.push_back({"resident memory, KiB / allowed", static_cast<int64_t>(resident_.back().value),
                      static_cast<int64_t>(resident_.front().value) + static_cast<int64_t>(allowed_growth_kib(totals)),
                      true});
    if (&kind_ != &kSteady) return;
    const auto quarter = std::span(resident_).first(rests_under_load_).last(rests_under_load_ / 2);
    checks.push_back({"three rests that a slope needs / rests", 3, static_cast<int64_t>(quarter.size()), true});
    if (quarter.size() < 3) return;
    const Slope slope = slope_of(quarter);
    const double minutes = quarter.back().at - quarter.front().at;
    fmt::print("  slope of the resident memory over the last quarter: {:+.1f} KiB a minute, error {:.1f}, {} samples\n",
               slope.slope, slope.error, quarter.size());
    checks.push_back({"slope of the resident memory less twice its error, KiB a minute / allowed",
                      static_cast<int64_t>(slope.slope - 2 * slope.error),
                      static_cast<int64_t>(kSteepest + kWanderKib / minutes), true});
}

// Prints what the round says of itself, and what does not hold.
bool Round::sum_up() {
    Terms terms = kind_.terms;
    terms.longest_event_queue = rig_.longest_event_queue();
    terms.outlived = rig_.outlived();
    const Account account = rig_.session().account();
    std::vector<Check> checks = check_account(account, terms);
    fmt::print("{}", account_text(account, terms.settled ? End::quiet : End::under_load));
    if (!resident_.empty()) {
        fmt::print("  resident memory at rest, KiB:");
        for (const Sample& sample : resident_) fmt::print(" {:.0f}", sample.value);
        fmt::print("\n");
    }
    check_memory(account.totals, checks);
    const std::string failed = failed_text(checks);
    fmt::print("{}  {} checks, {}\n", failed, checks.size(),
               failed.empty() && wrong_ == 0 ? "all hold" : "NOT all hold");
    return failed.empty() && wrong_ == 0;
}

int run_round(const std::string& agent, const RoundKind& kind, milliseconds length, uint32_t seed) {
    try {
        return Round(agent, kind, length, seed).run() ? 0 : 1;
    } catch (const std::exception& e) {
        fmt::print("  WRONG: {}\n", e.what());
        return 1;
    }
}

// Runs the round in a process of its own. An alarm ends it if it hangs.
bool run_in_child(const std::string& agent, const RoundKind& kind, milliseconds length, uint32_t seed) {
    // The child would print what is still in the buffers a second time.
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        // The alarm's signal ends the child, and the parent names it.
        alarm(static_cast<unsigned>(length.count() / 1000) + kGraceSeconds);
        // An orderly exit, so that a leak checker looks at the round.
        exit(run_round(agent, kind, length, seed));
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) fmt::print("  WRONG: ended by signal {}\n", WTERMSIG(status));
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Plays at least one round of each kind, however short the time is, and then the steady one for as long again.
int soak(milliseconds total, uint32_t seed) {
    // One copy serves all rounds, because a build in the meantime would change the staged folder.
    const AgentFolder agent(ZEL_AGENT_DIR, parsed(kCommon));
    const milliseconds half = total / 2;
    const milliseconds length = std::clamp(half / static_cast<int>(std::size(kRounds)), kShortestRound, kLongestRound);
    const auto end = machine_now() + half;
    uint32_t rounds = 0;
    std::vector<uint32_t> failed;
    const auto play = [&](const RoundKind& kind, milliseconds long_) {
        fmt::print("round {}, {} s: {}\n", ++rounds, long_.count() / 1000, kind.name);
        if (!run_in_child(agent.root(), kind, long_, seed + rounds)) failed.push_back(rounds);
    };
    do play(kRounds[rounds % std::size(kRounds)], length);
    while (machine_now() < end || rounds < std::size(kRounds));
    play(kSteady, std::max(half, kShortestRound));
    fmt::print("soak: {} rounds from seed {}, {} failed{}{}\n", rounds, seed, failed.size(), failed.empty() ? "" : ": ",
               fmt::join(failed, ", "));
    return failed.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    // Before any other thread exists.
    clocks::speed_up(kClockSpeed);
    try {
        return soak(std::chrono::seconds(argc > 1 ? atoi(argv[1]) : 60),
                    static_cast<uint32_t>(argc > 2 ? atoi(argv[2]) : 1));
    } catch (const std::exception& e) {
        fmt::print(stderr, "soak: {}\n", e.what());
        return 1;
    }
}
