// A soak: mixed load from several threads in rounds, each in a process of its own, since a plug-in attaches to the bus
// once in its life. Each round starts the pipeline, loads it, stops it, and starts and stops it again while on-demand
// traces go on. At its end every event that went in has an end that a log line or a counter names.
//
//   soak [SECONDS [SEED]]
//
// Prints a balance for each round. Ends with 1 if a figure differs or a round did not end well.
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
#include "longrun/checks.h"
#include "longrun/load.h"
#include "longrun/rig.h"

namespace {

using namespace std::chrono_literals;
using namespace zelhost;
using clocks::machine_now;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct RoundKind {
    const char* name;
    std::vector<const char*> settings;
    LoadOptions load;
    Terms terms;
};
// Each meets limits that the others do not.
const RoundKind kRounds[] = {
    {"traces put off once, failed and dropped; every event to its end",
     {"zeltrc:standin:not_ready_times=1", "zeltrc:standin:cost_ms=1", "zeltrc:standin:fail_every=7",
      "zeltrc:standin:drop_every=11"},
     {},
     {}},
    {"resets and reports at any time, stopped under load",
     {"zeltrc:standin:cost_ms=3", "zelreshdl:cache:cache_size=50"},
     {.resets = true, .reports_at_any_time = true},
     {.settled = false, .resets = true}},
    {"traces given up, partial results, stopped under load",
     {"zeltrc:standin:not_ready_times=3", "zeltrc:standin:fail_every=3", "zeltrc:standin:drop_every=5",
      "zeltrc:standin:partial_result=1", "zelreshdl:config:trc_times=3"},
     {},
     {.settled = false, .partial_results = true}},
    {"resets, every event to its end",
     {"zelreshdl:cache:die_num=100", "zelreshdl:cache:cache_size=10", "zelreshdl:config:trace_val=10"},
     {.resets = true},
     {.resets = true}},
    {"no tracing, which fills no queue", {"zelreshdl:config:trc_times=0"}, {}, {}},
    {"pure mode, in which nobody takes a trace", {"zel_pure_mode:advthreats_module:enable=0"}, {}, {.settled = false}},
};
constexpr const char* kCommon[] = {"zelreshdl:config:interval=1", "zelreshdl:cache:die_check_time=1",
                                   "zelreshdl:cache:die_time_linux=1"};

constexpr milliseconds kLongestRound = 5min;
constexpr milliseconds kShortestRound = 5s;
constexpr milliseconds kBetweenPauses = 5s;
constexpr unsigned kGraceSeconds = 240;
constexpr int kRestarts = 3;
constexpr int kClockSpeed = 60;  // a minute of the run is an hour of the plug-in's

// What a round may add to its memory: some of its own, and what the plug-in keeps on purpose, which is the nodes of
// ignored events, the builder's buffers of file traces and the trees of documents without an id.
uint64_t allowed_growth_kib(const Totals& totals) {
    return 4096 + totals.sum(&KindFigures::ignored) + totals.file_traces / 2 + totals.sum(&KindFigures::undecoded) * 2;
}

std::vector<Setting> parsed(std::span<const char* const> texts) {
    std::vector<Setting> list;
    for (const char* text : texts) list.push_back(parse_setting(text));
    return list;
}

class Round {
public:
    Round(const std::string& agent, const RoundKind& kind, milliseconds length, uint32_t seed)
        : kind_(kind), length_(length), seed_(seed), rig_(agent, parsed(kind.settings)) {}

    bool run();

private:
    void load_until(Load& load, steady_clock::time_point end);
    void rest(Load& load);
    void settle();
    void stop();
    bool sum_up();

    const RoundKind& kind_;
    const milliseconds length_;
    const uint32_t seed_;
    Rig rig_;
    Left discarded_;  // by the stops so far
    uint64_t wrong_ = 0;
    std::vector<uint64_t> resident_;  // KiB at each rest
};

void Round::settle() {
    if (rig_.settle(discarded_)) return;
    ++wrong_;
    fmt::print("  WRONG: not all has come to its end\n");
}

// Nothing runs and no event is held: the figures are exact, memory is what is kept, and a stop leaves no result of the
// trace module to an event that outlives it.
void Round::rest(Load& load) {
    load.pause();
    settle();
    rig_.release_held();
    rig_.session().collect();
    resident_.push_back(resident_kib());
}

void Round::load_until(Load& load, steady_clock::time_point end) {
    while (machine_now() < end) {
        std::this_thread::sleep_for(std::min<steady_clock::duration>(kBetweenPauses, end - machine_now()));
        if (!kind_.terms.settled) continue;
        rest(load);
        load.resume();
    }
}

// What a stop takes out of the queues is gone without a line, so it counts as left from then on.
void Round::stop() {
    rig_.stop();
    discarded_ = rig_.session().account().left;
}

bool Round::run() {
    const auto end = machine_now() + length_;
    rig_.start();
    {
        Load load(rig_, kind_.load, seed_);
        load_until(load, end);
        if (kind_.terms.settled) rest(load);
        stop();
        // The second and later starts do not attach to the bus again: on-demand traces are all that comes.
        for (int i = 0; i < kRestarts; ++i) {
            rig_.start();
            load.resume();
            std::this_thread::sleep_for(length_ / 50);
            if (kind_.terms.settled) rest(load);
            stop();
        }
        load.pause();
        wrong_ += load.wrong_answers();
    }
    rig_.release_held();
    return sum_up();
}

// All that the round says of itself, and what does not hold.
bool Round::sum_up() {
    Terms terms = kind_.terms;
    terms.longest_event_queue = rig_.longest_event_queue();
    terms.outlived = rig_.outlived();
    const Account account = rig_.session().account();
    std::vector<Check> checks = check_account(account, terms);
    if (kMeasureMemory && !resident_.empty())
        checks.push_back({"resident memory, KiB / allowed", static_cast<int64_t>(resident_.back()),
                          static_cast<int64_t>(resident_.front() + allowed_growth_kib(account.totals)), true});
    fmt::print("{}", account_text(account, terms.settled ? End::quiet : End::under_load));
    if (!resident_.empty()) fmt::print("  resident memory at rest, KiB: {}\n", fmt::join(resident_, " "));
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

// In a process of its own, which an alarm ends if it hangs.
bool run_in_child(const std::string& agent, const RoundKind& kind, milliseconds length, uint32_t seed) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        alarm(static_cast<unsigned>(length.count() / 1000) + kGraceSeconds);
        exit(run_round(agent, kind, length, seed));
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) fmt::print("  WRONG: ended by signal {}\n", WTERMSIG(status));
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// At least one round of each kind, however short the time.
int soak(milliseconds total, uint32_t seed) {
    // One copy for all rounds: a build in the meantime changes the staged folder.
    const AgentFolder agent(ZEL_AGENT_DIR, parsed(kCommon));
    const milliseconds length = std::clamp(total / static_cast<int>(std::size(kRounds)), kShortestRound, kLongestRound);
    const auto end = machine_now() + total;
    uint32_t rounds = 0;
    std::vector<uint32_t> failed;
    do {
        const RoundKind& kind = kRounds[rounds % std::size(kRounds)];
        fmt::print("round {}, {} s: {}\n", ++rounds, length.count() / 1000, kind.name);
        if (!run_in_child(agent.root(), kind, length, seed + rounds)) failed.push_back(rounds);
    } while (machine_now() < end || rounds < std::size(kRounds));
    fmt::print("soak: {} rounds from seed {}, {} failed{}{}\n", rounds, seed, failed.size(), failed.empty() ? "" : ": ",
               fmt::join(failed, ", "));
    return failed.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    clocks::speed_up(kClockSpeed);
    try {
        return soak(std::chrono::seconds(argc > 1 ? atoi(argv[1]) : 60),
                    static_cast<uint32_t>(argc > 2 ? atoi(argv[2]) : 1));
    } catch (const std::exception& e) {
        fmt::print(stderr, "soak: {}\n", e.what());
        return 1;
    }
}
