// The call sweep. It plays one scenario over and over, each time in a process of its own. In each run another one of
// the calls that the plug-in's code makes fails: an allocation, a file, a library, a thread and so on. It compares what
// comes out with a run in which none fails.
//
//   call_sweep [--every K] [--from N] [--only N]
//
// A failure costs most often the event in hand: one report, one trace, one call or one start, with a line of level
// ERROR or WARN. The table in sweep_costs.cpp says it for each call. Everything else comes out as in the run without a
// failure.
//
// Exit code 0: no fault. 1: at least one fault, or the sweep itself could not work. 2: wrong options.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "longrun/sweep_judge.h"
#include "longrun/sweep_session.h"

namespace fs = std::filesystem;

namespace {

using sweep::Run;

// A run takes about a second, so this is a hang and no slow machine.
constexpr auto kLongestRun = std::chrono::seconds(120);
// Parts of names of functions that say nothing about the place of a call. The functions of the C++ library do not,
// either.
constexpr const char* kNoPlace[] = {"__gnu_cxx::", "google::protobuf::", "vorn_retrace::dup_alert", "zel::guarded<"};
// Enough to tell one call from another.
constexpr int kShownPlaces = 6;
constexpr int kExitFault = 1;
constexpr int kExitUsage = 2;

// Plays the numbers from, from + every and so on; or only one, with all that its run wrote.
struct Options {
    uint64_t every = 1;
    uint64_t from = 1;
    uint64_t only = 0;
};

// Owns the folder of the runs and removes it at the end. Several threads may play at once: each run has a folder of its
// own.
class Sweep {
public:
    Sweep();
    ~Sweep() { fs::remove_all(root_); }

    // Plays the run in which the call with this number fails, in a process of its own; 0 for none. Returns what
    // it told and its status of waitpid.
    std::pair<Run, int> play(uint64_t number) const;
    // Says in words where the call is.
    std::string describe(const Run& run) const;

private:
    std::string root_;
    std::string self_;
};

// The agent folder of all runs is the staged one with a scripted trace module and low limits. The limits are low so
// that a short scenario reaches them. What is not changed is linked and not copied.
Sweep::Sweep() : self_(fs::read_symlink("/proc/self/exe")) {
    root_ = (fs::temp_directory_path() / "zel-sweep-XXXXXX").string();
    if (mkdtemp(root_.data()) == nullptr) {
        perror("call_sweep: no folder for the runs");
        exit(kExitFault);
    }
    const std::string agent = root_ + "/agent";
    fs::create_directory(agent);
    for (const auto& entry : fs::recursive_directory_iterator(ZEL_AGENT_DIR)) {
        const fs::path copy = agent / entry.path().lexically_relative(ZEL_AGENT_DIR);
        if (entry.is_directory())
            fs::create_directory(copy);
        else if (entry.path().extension() == ".ini")
            fs::copy_file(entry.path(), copy);
        else
            fs::create_symlink(entry.path(), copy);
    }
    fs::remove(agent + "/reshdl/lib/libzeltrc.so");
    fs::create_symlink(SWEEP_SCRIPTED, agent + "/reshdl/lib/libzeltrc.so");
    // Appended, because the last of a doubled key counts.
    std::ofstream(agent + "/reshdl/config/zelreshdl.ini", std::ios::app)
        << "\n[config]\ninterval=1\nioa_match_queue_size=4\ndisable_scan_scenario_limit=1\n"
        << "[cache]\ncache_size=10\n";
}

// The environment of a run: the preloaded library and a quiet logger. The lines come through the tap.
std::vector<std::string> environment() {
    const char* const given = getenv("ASAN_OPTIONS");
    std::vector<std::string> list = {
        std::string("LD_PRELOAD=") + SWEEP_PRELOAD,
        // The preloaded library stands before the sanitizer's runtime on purpose, which the runtime refuses otherwise.
        std::string("ASAN_OPTIONS=verify_asan_link_order=0:") + (given == nullptr ? "" : given),
        "ZEL_LOG_FILE=/dev/null", "ZEL_LOG_LEVEL=error"};
    for (char** variable = environ; *variable != nullptr; ++variable)
        if (strncmp(*variable, "ASAN_OPTIONS=", 13) != 0 && strncmp(*variable, "ZEL_LOG", 7) != 0)
            list.emplace_back(*variable);
    return list;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> list;
    // posix_spawn wants pointers that are not constant; it changes nothing behind them.
    for (std::string& text : texts) list.push_back(text.data());
    list.push_back(nullptr);
    return list;
}

// Starts a program whose output and error output go to one file, in the order in which they are written.
pid_t start(std::vector<std::string> arguments, const std::string& out) {
    std::vector<std::string> variables = environment();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t child = 0;
    const int error = posix_spawn(&child, arguments[0].c_str(), &actions, nullptr, pointers(arguments).data(),
                                  pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error == 0) return child;
    fprintf(stderr, "call_sweep: %s cannot be started: %s\n", arguments[0].c_str(), strerror(error));
    exit(kExitFault);
}

std::pair<Run, int> Sweep::play(uint64_t number) const {
    const std::string folder = root_ + "/run-" + std::to_string(number);
    const std::string out = folder + "/out";
    fs::create_directories(folder);
    const pid_t child = start({self_, "--play", std::to_string(number), root_ + "/agent", folder}, out);
    int status = 0;
    bool killed = false;
    const auto deadline = std::chrono::steady_clock::now() + kLongestRun;
    while (waitpid(child, &status, WNOHANG) == 0) {
        // The child is still waited for, since it would stay a zombie otherwise.
        if (!killed && std::chrono::steady_clock::now() > deadline) {
            killed = true;
            kill(child, SIGKILL);
        }
        usleep(2000);
    }
    std::ostringstream text;
    text << std::ifstream(out).rdbuf();
    Run run = sweep::parse(text.str());
    if (killed) run.wrong += "hang: no end within " + std::to_string(kLongestRun.count()) + " s";
    // A sweep has thousands of runs.
    fs::remove_all(folder);
    return {std::move(run), status};
}

// The function and its file. Empty for a function that says nothing about the place.
std::string place_of(std::string function, const std::string& source) {
    for (const std::string nameless = "(anonymous namespace)::"; function.find(nameless) != std::string::npos;)
        function.erase(function.find(nameless), nameless.size());
    function = function.substr(0, function.find('('));
    const auto stands_in = [&](const char* part) { return function.find(part) != std::string::npos; };
    if (function.find("std::") < function.find('<') || function == "operator" ||
        std::ranges::any_of(kNoPlace, stands_in))
        return "";
    // addr2line writes "??" for a file that it does not know.
    return source.find('?') == std::string::npos ? function + " (" + source.substr(0, source.find(' ')) + ")"
                                                 : function;
}

// The plug-in's functions that stand at these addresses, the innermost first. Empty without addr2line.
std::string places(const std::string& addresses, const std::string& library) {
    const std::string command = "addr2line -Cfsi -e " + library + addresses + " 2>/dev/null";
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (pipe == nullptr) return "";
    std::string shown;
    std::string function;
    char line[4096];
    for (int count = 0; count < kShownPlaces && fgets(line, sizeof line, pipe.get()) != nullptr;) {
        const std::string text(line, strcspn(line, "\n"));
        if (function.empty()) {  // a line with the function, then one with its file
            function = text;
            continue;
        }
        const std::string place = place_of(std::exchange(function, ""), text);
        if (place.empty()) continue;
        shown += (count++ == 0 ? "" : " < ") + place;
    }
    return shown;
}

// The call, and the functions of the plug-in that led to it.
std::string Sweep::describe(const Run& run) const {
    if (run.call.empty()) return "no call";
    std::string addresses;
    // The library that calls for the plug-in: the last one before the plug-in's own frames.
    std::string between;
    for (const std::string& frame : run.frames) {
        const size_t plus = frame.find('+');
        const std::string module = frame.substr(0, plus);
        if (module == "libzelreshdl.so")
            addresses += " " + frame.substr(plus + 1);
        else if (addresses.empty() && !module.starts_with("libfailing_calls") && !module.starts_with("libstdc"))
            between = module;
    }
    return run.call + " in " + run.thread + (between.empty() ? "" : " through " + between) + " from " +
           places(addresses, root_ + "/agent/reshdl/bin/libzelreshdl.so");
}

// False unless the whole text is a number above 0.
bool number_at(const char* text, uint64_t& value) {
    const char* const end = text + strlen(text);
    const auto [at, error] = std::from_chars(text, end, value);
    return error == std::errc() && at == end && value > 0;
}

bool read_options(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        uint64_t* const value = name == "--every"  ? &options.every
                                : name == "--from" ? &options.from
                                : name == "--only" ? &options.only
                                                   : nullptr;
        // An unknown option ends the sweep, because a sweep with the wrong numbers looks like a good one.
        if (value == nullptr || i + 1 >= argc || !number_at(argv[i + 1], *value)) return false;
    }
    return true;
}

// ZEL_JOBS, or one job for each processor.
unsigned jobs() {
    const char* const text = getenv("ZEL_JOBS");
    const int given = text == nullptr ? 0 : atoi(text);
    return given > 0 ? static_cast<unsigned>(given) : std::max(1U, std::thread::hardware_concurrency());
}

// The run without a failure is judged as well: a scenario that fails by itself would hide every fault.
int run_sweep(const Options& options) {
    const Sweep runs;
    const auto [baseline, status] = runs.play(0);
    std::string fault = sweep::judge_alone(baseline, status);
    if (!fault.empty()) {
        fprintf(stderr, "call_sweep: the run without a failure is at fault: %s\n", fault.c_str());
        fputs(baseline.text.c_str(), stderr);
        return kExitFault;
    }
    // The number of calls is nearly the same in each run; a run that makes fewer says so.
    const auto count = static_cast<uint64_t>(baseline.end.at("calls"));
    // For a look at one fault: its run's whole output, then the verdict.
    if (options.only != 0) {
        const auto [run, ended] = runs.play(options.only);
        fault = sweep::judge(baseline, run, ended);
        fputs(run.text.c_str(), stdout);
        printf("N=%lu %s: %s\n", options.only, runs.describe(run).c_str(), fault.empty() ? "no fault" : fault.c_str());
        return fault.empty() ? 0 : kExitFault;
    }

    // The jobs share one counter: runs differ in length, so a fixed share would leave one of them idle.
    std::atomic<uint64_t> next{options.from};
    std::atomic<uint64_t> played{0};
    std::atomic<uint64_t> faults{0};
    std::mutex output;
    const auto work = [&] {
        for (;;) {
            const uint64_t number = next.fetch_add(options.every);
            if (number > count) return;
            const auto [run, ended] = runs.play(number);
            const std::string found = sweep::judge(baseline, run, ended);
            ++played;
            if (found.empty()) continue;
            ++faults;
            const std::string place = runs.describe(run);
            // A fault is printed at once: a long sweep may be broken off.
            const std::lock_guard lock(output);
            printf("N=%lu %s: %s\n", number, place.c_str(), found.c_str());
            fflush(stdout);
        }
    };
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < jobs(); ++i) workers.emplace_back(work);
    for (std::thread& worker : workers) worker.join();
    printf("%lu calls, %lu runs, %lu faults\n", count, played.load(), faults.load());
    return faults == 0 ? 0 : kExitFault;
}

}  // namespace

int main(int argc, char** argv) {
    // The program starts itself again with this for each run.
    if (argc == 5 && strcmp(argv[1], "--play") == 0) {
        // The agent folder, then the folder of the run, which stands for that of the flag files.
        sweep::Session session(argv[3], argv[4]);
        sweep::play(session, strtoull(argv[2], nullptr, 10));
        return 0;
    }
    Options options;
    if (!read_options(argc, argv, options)) {
        fputs("usage: call_sweep [--every K] [--from N] [--only N]\n", stderr);
        return kExitUsage;
    }
    return run_sweep(options);
}
