// The allocation sweep: plays one scenario in a process of its own for each allocation that the plug-in's code makes in
// it, with that allocation failing, and compares what comes out with a run in which none fails.
//
//   allocation_sweep [--every K] [--from N] [--only N]
//
// What one failure may cost is the event in hand: one report, one trace, one call or one start, with a line of level
// ERROR or WARN. Everything else comes out as in the run without a failure; so does all that is played afterwards.
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

constexpr auto kLongestRun = std::chrono::seconds(60);
constexpr int kExitFault = 1;
constexpr int kExitUsage = 2;

struct Options {
    uint64_t every = 1;
    uint64_t from = 1;
    uint64_t only = 0;
};

class Sweep {
public:
    Sweep();
    ~Sweep() { fs::remove_all(root_); }

    // Plays the run in a process of its own.
    std::pair<Run, int> play(uint64_t number) const;
    std::string describe(const Run& run) const;
    const std::string& root() const { return root_; }

private:
    std::string library_of(const std::string& module) const;

    std::string root_;
    std::string self_;
};

// The agent folder of all runs: the staged one with a scripted trace module and low limits.
Sweep::Sweep() : self_(fs::read_symlink("/proc/self/exe")) {
    root_ = (fs::temp_directory_path() / "zel-sweep-XXXXXX").string();
    if (mkdtemp(root_.data()) == nullptr) {
        perror("allocation_sweep: no folder for the runs");
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
    std::ofstream(agent + "/reshdl/config/zelreshdl.ini", std::ios::app)
        << "\n[config]\ninterval=1\nioa_match_queue_size=5\ndisable_scan_scenario_limit=1\n"
        << "[cache]\ncache_size=10\n";
}

std::pair<Run, int> Sweep::play(uint64_t number) const {
    const std::string folder = root_ + "/run-" + std::to_string(number);
    const std::string out = folder + "/out";
    fs::create_directories(folder);
    const std::string preload = std::string("LD_PRELOAD=") + SWEEP_PRELOAD;
    const char* const given = getenv("ASAN_OPTIONS");
    // The library stands before the sanitizer's runtime on purpose.
    const std::string asan = std::string("ASAN_OPTIONS=verify_asan_link_order=0:") + (given == nullptr ? "" : given);
    std::vector<std::string> environment = {preload, asan, "ZEL_LOG_FILE=/dev/null", "ZEL_LOG_LEVEL=error"};
    for (char** variable = environ; *variable != nullptr; ++variable)
        if (strncmp(*variable, "ASAN_OPTIONS=", 13) != 0 && strncmp(*variable, "ZEL_LOG", 7) != 0)
            environment.emplace_back(*variable);
    std::vector<char*> pointers;
    for (std::string& text : environment) pointers.push_back(text.data());
    pointers.push_back(nullptr);

    std::string program = self_;
    std::string mode = "--play";
    std::string what = std::to_string(number);
    std::string agent = root_ + "/agent";
    std::string flags = folder;
    char* arguments[] = {program.data(), mode.data(), what.data(), agent.data(), flags.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t child = 0;
    const int error = posix_spawn(&child, self_.c_str(), &actions, nullptr, arguments, pointers.data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        fprintf(stderr, "allocation_sweep: %s cannot be started: %s\n", self_.c_str(), strerror(error));
        exit(kExitFault);
    }
    int status = 0;
    bool killed = false;
    const auto deadline = std::chrono::steady_clock::now() + kLongestRun;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (!killed && std::chrono::steady_clock::now() > deadline) {
            killed = true;
            kill(child, SIGKILL);
        }
        usleep(2000);
    }
    std::ostringstream text;
    text << std::ifstream(out).rdbuf();
    Run run = sweep::parse(text.str());
    if (killed) run.wrong += " hang: no end within " + std::to_string(kLongestRun.count()) + " s";
    fs::remove_all(folder);
    return {std::move(run), status};
}

std::string Sweep::library_of(const std::string& module) const {
    if (module == "libzelreshdl.so") return root_ + "/agent/reshdl/bin/libzelreshdl.so";
    return "";
}

// The call, and the functions of the plug-in that led to it, the innermost first.
std::string Sweep::describe(const Run& run) const {
    if (run.call.empty()) return "no allocation failed";
    std::string addresses;
    std::string library;
    std::string outside;
    for (const std::string& frame : run.frames) {
        const size_t plus = frame.find('+');
        const std::string module = frame.substr(0, plus);
        if (!library_of(module).empty()) {
            library = library_of(module);
            addresses += " " + frame.substr(plus + 1);
        } else if (addresses.empty() && module.find("failing_allocations") == std::string::npos &&
                   module.find("libstdc++") == std::string::npos && outside != module) {
            outside = module;
        }
    }
    std::string functions;
    const std::string command = "addr2line -Cfsi -e " + library + addresses + " 2>/dev/null";
    if (FILE* const pipe = library.empty() ? nullptr : popen(command.c_str(), "r"); pipe != nullptr) {
        char line[4096];
        int shown = 0;
        std::string name;
        while (fgets(line, sizeof line, pipe) != nullptr) {
            std::string text(line, strcspn(line, "\n"));
            if (name.empty()) {
                name = text;
                continue;
            }
            for (const std::string nameless = "(anonymous namespace)::"; name.find(nameless) != std::string::npos;)
                name.erase(name.find(nameless), nameless.size());
            // Templates of the C++ library say nothing about the place.
            const std::string plain = name.substr(0, name.find('('));
            const bool of_library = plain.find("std::") < plain.find('<') || plain.starts_with("__gnu_cxx::") ||
                                    plain == "operator" || plain.find("zel::guarded<") != std::string::npos;
            if (!of_library && ++shown <= 6) {
                functions += (functions.empty() ? "" : " < ") + plain;
                if (text.find('?') == std::string::npos) functions += " (" + text.substr(0, text.find(' ')) + ")";
            }
            name.clear();
        }
        pclose(pipe);
    }
    return run.call + (outside.empty() ? "" : " through " + outside) + " from " + functions;
}

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
        if (value == nullptr || i + 1 >= argc || !number_at(argv[i + 1], *value)) return false;
    }
    return true;
}

unsigned jobs() {
    const char* const text = getenv("ZEL_JOBS");
    const int given = text == nullptr ? 0 : atoi(text);
    return given > 0 ? static_cast<unsigned>(given) : std::max(1U, std::thread::hardware_concurrency());
}

int run_sweep(const Options& options) {
    const Sweep runs;
    const auto [baseline, status] = runs.play(0);
    std::string fault = sweep::judge(baseline, baseline, status);
    if (fault.empty()) fault = sweep::unsound(baseline);
    if (!fault.empty()) {
        fprintf(stderr, "allocation_sweep: the run without a failure is at fault: %s\n", fault.c_str());
        fputs(baseline.text.c_str(), stderr);
        return kExitFault;
    }
    const auto count = static_cast<uint64_t>(baseline.end.at("allocations"));
    if (options.only != 0) {
        const auto [run, ended] = runs.play(options.only);
        fault = sweep::judge(baseline, run, ended);
        fputs(run.text.c_str(), stdout);
        printf("N=%lu %s: %s\n", options.only, runs.describe(run).c_str(), fault.empty() ? "no fault" : fault.c_str());
        return fault.empty() ? 0 : kExitFault;
    }

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
            const std::lock_guard lock(output);
            printf("N=%lu %s: %s\n", number, place.c_str(), found.c_str());
            fflush(stdout);
        }
    };
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < jobs(); ++i) workers.emplace_back(work);
    for (std::thread& worker : workers) worker.join();
    printf("%lu allocations, %lu runs, %lu faults\n", count, played.load(), faults.load());
    return faults == 0 ? 0 : kExitFault;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && strcmp(argv[1], "--play") == 0) {
        sweep::Session session(argv[3], argv[4]);
        sweep::play(session, strtoull(argv[2], nullptr, 10));
        return 0;
    }
    Options options;
    if (!read_options(argc, argv, options)) {
        fputs("usage: allocation_sweep [--every K] [--from N] [--only N]\n", stderr);
        return kExitUsage;
    }
    return run_sweep(options);
}
