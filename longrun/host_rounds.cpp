// A host that loads the plug-in again and again, exits without stopping it, and forks while it works. The program has
// the full runtime of protobuf with a copy of the message schema, which the plug-in's own copy must not meet.
//
//   host_rounds ROUNDS LIBRARY    LIBRARY is part of the name of the library that is to allocate, as in "libc.so"
//
// In each round the plug-in is loaded, started, given work, stopped and unloaded; every other time it is loaded with
// its names visible to all. After each round the process has what it had before: the same threads, descriptors and
// mapped files, and the same memory but for kLeft. The first kWarmUp rounds are not compared: the libraries make their
// caches in them, and the bus keeps a shell of each of its last 256 events.
//
// Prints one line, or a line for each thing that does not hold. Exit code 1 then, 2 for a wrong argument.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "host/lib/alert.h"
#include "host/lib/dns_event.h"
#include "host/lib/failure.h"
#include "host/lib/session.h"
#include "longrun/counted_memory.h"
#include "longrun/rig.h"
#include "retrace.pb.h"

namespace {

using namespace std::chrono_literals;
using namespace zelhost;

constexpr int kWarmUp = 20;
constexpr int kMostSteps = 2000;  // of a millisecond, until the bus is at rest
constexpr int kExits = 5;
constexpr int kForks = 200;
constexpr int kAlertsOfARound = 8;
// First reports of the alerts, their repeat, the memory Trojan, two DNS hits and the finding; chains of all but the
// repeat and the finding.
constexpr uint64_t kMessagesOfARound = (kAlertsOfARound + 5) + (kAlertsOfARound + 3);
constexpr unsigned kLongestSeconds = 60;  // of an exit, a fork or the wait for the work of a round

// Each load leaves these blocks allocated, because the bus may call the plug-in up to the last moment of the process:
// the plug-in object, its mutex and the mutex of the hot cache.
constexpr int64_t kLeft = 3;
// Their bytes by round, and what the shells of the bus and the allocator's choice of sizes may differ by in all.
constexpr int64_t kLeftBytes = kLeft * 48;
constexpr int64_t kMostBytesBeside = 16384;
// Resident memory is the allocator's business, which may keep what was freed: tcmalloc does so for each thread. But it
// must not go on growing.
constexpr int64_t kMostGrowthKib = 8192;

// Reads what the plug-in gives out, with the full runtime.
class Reader final : public Client {
public:
    uint64_t unread() const { return unread_; }
    uint64_t messages() const { return messages_; }

private:
    void on_event(MbFrame::IEvent&, const ST_PB_EVENT& record) override {
        vorn_retrace::vorn_trace_info message;
        ++messages_;
        if (!message.ParseFromArray(record.pData, static_cast<int>(record.uSize))) ++unread_;
    }

    std::atomic<uint64_t> messages_ = 0;
    std::atomic<uint64_t> unread_ = 0;
};

// --- work ---

void send(Session& session, uint32_t id, const std::string& text) { session.publish(id, text.data(), text.size()); }

void send_alert(Session& session, int64_t number) {
    send(session, event_id::ioa_alert, Alert{.number = number, .type = 2, .process_set = {AlertEvent{}}}.text());
}

void send_hit(Session& session, int number) {
    const DnsEvent event(fmt::format(R"({{"domain":"d{}.example","path":"/bin/sh","pid":7}})", number));
    session.publish(event.native(), event.query_name());
}

// One of each kind of work, but for those of which the plug-in keeps memory on purpose. `first` numbers the alerts.
void send_work(Session& session, int64_t first) {
    for (int i = 0; i < kAlertsOfARound; ++i) send_alert(session, first + i);
    send_alert(session, first);  // a repeat
    send(session, event_id::memory_trojan, Alert{.number = first + kAlertsOfARound, .type = 5}.text());
    for (const int hit : {1, 2}) send_hit(session, hit);
    send(session, event_id::port_scan, R"({"attack":"scan"})");
    send(session, event_id::ioa_alert, "{");  // refused
    const std::string_view request = "request";
    session.process_trace(request.data(), static_cast<uint32_t>(request.size()), 1);
}

void settle(const Session& session) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kLongestSeconds);
    const bool settled = session.wait_until_settled({}, [&](const Session::Open&) {
        std::this_thread::sleep_for(1ms);
        return std::chrono::steady_clock::now() < deadline;
    });
    if (!settled) throw Failure("the work of a round has no end");
}

// What the plug-in sends last may be still on its way when its work has an end. Released after the stop, a result of
// the trace module would stay allocated.
void wait_for_messages(const Session& session, const Reader& reader) {
    for (int step = 0; step < kMostSteps && reader.messages() < kMessagesOfARound; ++step)
        std::this_thread::sleep_for(1ms);
    session.drain();
}

// --- what the process has ---

int64_t entries(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

// The files that are mapped, each with the number of its mappings.
std::map<std::string, int> mapped_files() {
    std::map<std::string, int> files;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (const size_t at = line.find('/'); at != std::string::npos) ++files[line.substr(at)];
    return files;
}

struct Figures {
    int64_t threads = entries("/proc/self/task");
    int64_t descriptors = entries("/proc/self/fd");
    std::map<std::string, int> files = mapped_files();
};

class Rounds {
public:
    explicit Rounds(const AgentFolder& folder) : folder_(folder) {}

    // Plays the rounds and compares. Returns the words for what they left.
    std::string run(int rounds);
    bool hold() const { return wrong_ == 0; }

private:
    void play(int round);
    void compare(int round, const Figures& before, const Memory& grown);
    static Memory memory_at_rest(int64_t expected_blocks);
    template <class... Values>
    void wrong(int round, fmt::format_string<Values...> text, Values&&... values) {
        ++wrong_;
        fmt::print("WRONG after round {}: {}\n", round, fmt::format(text, std::forward<Values>(values)...));
    }

    const AgentFolder& folder_;
    int wrong_ = 0;
};

void Rounds::play(int round) {
    Reader reader;
    {
        Session session(folder_, reader, round % 2 == 0 ? RTLD_LOCAL : RTLD_GLOBAL);
        if (session.start() != 0) throw Failure("plugin_init failed in round {}", round);
        send_work(session, int64_t{100} * round);
        settle(session);
        wait_for_messages(session, reader);
        send_hit(session, 1);  // the hot cache knows it by now, so nothing more comes of it
        session.drain();
    }
    if (is_loaded(folder_.plugin())) wrong(round, "the plug-in is still loaded");
    if (reader.unread() > 0) wrong(round, "{} messages cannot be read", reader.unread());
    if (reader.messages() != kMessagesOfARound)
        wrong(round, "{} messages instead of {}", reader.messages(), kMessagesOfARound);
}

// The bus counts an event as delivered a moment before it has freed all of it.
Memory Rounds::memory_at_rest(int64_t expected_blocks) {
    Memory memory = living_memory();
    for (int step = 0; step < kMostSteps && memory.blocks != expected_blocks; ++step) {
        std::this_thread::sleep_for(1ms);
        memory = living_memory();
    }
    return memory;
}

void Rounds::compare(int round, const Figures& before, const Memory& grown) {
    const Figures now;
    if (now.threads != before.threads) wrong(round, "{} threads instead of {}", now.threads, before.threads);
    if (now.descriptors != before.descriptors)
        wrong(round, "{} descriptors instead of {}", now.descriptors, before.descriptors);
    for (const auto& [file, count] : now.files)
        if (const auto had = before.files.find(file); had == before.files.end() || had->second != count)
            wrong(round, "{} mappings of {} instead of {}", count, file, had == before.files.end() ? 0 : had->second);
    if (grown.blocks != kLeft) wrong(round, "{} blocks more, {} bytes", grown.blocks, grown.bytes);
}

std::string Rounds::run(int rounds) {
    for (int round = 0; round < kWarmUp && hold(); ++round) play(round);
    const Figures before;
    const auto resident = static_cast<int64_t>(resident_kib());
    const Memory first = living_memory();
    Memory last = first;
    for (int round = kWarmUp; round < kWarmUp + rounds && hold(); ++round) {
        play(round);
        const Memory now = memory_at_rest(last.blocks + kLeft);
        compare(round, before, now - last);
        last = now;
    }
    const int64_t left_bytes = (last - first).bytes;
    const int64_t growth = static_cast<int64_t>(resident_kib()) - resident;
    if (left_bytes > rounds * kLeftBytes + kMostBytesBeside) wrong(kWarmUp + rounds, "{} bytes more", left_bytes);
    if (growth > kMostGrowthKib) wrong(kWarmUp + rounds, "{} KiB more are resident", growth);
    return fmt::format(
        "{} threads, {} descriptors, {} mapped files; each load leaves {} blocks, {} bytes; resident {:+} KiB",
        before.threads, before.descriptors, before.files.size(), kLeft, left_bytes / rounds, growth);
}

// --- exits and forks, each in a program of its own ---

// Loaded for good, and in the midst of work when this returns.
Session& working_session(const AgentFolder& folder) {
    static auto& reader = *new Reader;
    auto& session = *new Session(folder, reader);
    if (session.start() != 0) throw Failure("plugin_init failed");
    while (reader.messages() < 2 * kAlertsOfARound) {
        static int64_t number = 0;
        send_alert(session, ++number);
    }
    return session;
}

[[noreturn]] void exit_without_a_stop(const AgentFolder& folder) {
    send_work(working_session(folder), 1'000'000);
    exit(0);
}

// The children leave in an orderly way, as a program does that only wanted to start another. The parent goes on, and
// comes to its end in the same way as if it had never forked.
int fork_in_mid_work(const AgentFolder& folder) {
    Session& session = working_session(folder);
    const Support support{Library(folder.root() / "lib/liblumutil.so", RTLD_GLOBAL)};
    int failed = 0;
    for (int i = 0; i < kForks; ++i) {
        send_work(session, 1'000'000 + 1000 * i);
        fflush(nullptr);  // or the child would print what waits once more
        const pid_t child = fork();
        if (child == 0) {
            alarm(kLongestSeconds / 3);  // its signal ends a child that hangs
            // What reads the lines here has a lock, which a thread that the child does not have may hold.
            support.set_log_tap(nullptr, nullptr);
            session.plugin().stop();  // logs a line
            exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (status == 0) continue;
        ++failed;
        fmt::print("WRONG: a forked child ended with status {:#x}\n", status);
    }
    settle(session);
    delete &session;
    return failed == 0 ? 0 : 1;
}

int run_again(const char* what, const std::string& root) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        alarm(kLongestSeconds);
        execl("/proc/self/exe", "host_rounds", what, root.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) fmt::print("WRONG: the program that should {} ended with status {:#x}\n", what, status);
    return status == 0 ? 0 : 1;
}

int all(int rounds, std::string_view library) {
    const std::string name = allocator_name();
    if (name.find(library) == std::string::npos) throw Failure("{} allocates, not {}", name, library);
    const AgentFolder folder(ZEL_AGENT_DIR, {parse_setting("zelreshdl:config:interval=1")});
    // The support library belongs to the agent and stays; its logger keeps its file open.
    const Library support(folder.root() / "lib/liblumutil.so", RTLD_GLOBAL);
    const auto started = std::chrono::steady_clock::now();
    Rounds all_rounds(folder);
    const std::string left = all_rounds.run(rounds);
    int failed = all_rounds.hold() ? 0 : 1;
    for (int i = 0; i < kExits; ++i) failed += run_again("exit", folder.root());
    failed += run_again("fork", folder.root());
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - started;
    fmt::print("{:26} {} rounds, {} exits, {} forks, {:.1f} s; {}{}\n", name, rounds, kExits, kForks, taken.count(),
               left, failed == 0 ? "" : "; NOT all hold");
    return failed == 0 ? 0 : 1;
}

int main_of(int argc, char** argv) {
    setenv("agentid", "host", 1);
    setenv("ZEL_LOG_FILE", "/dev/null", 1);
    setenv("ZEL_LOG_LEVEL", "error", 1);
    const std::string_view first = argc == 3 ? argv[1] : "";
    if (first == "exit") exit_without_a_stop(AgentFolder(argv[2], std::vector<Setting>{}));
    if (first == "fork") return fork_in_mid_work(AgentFolder(argv[2], std::vector<Setting>{}));
    int rounds = 0;
    const auto [end, error] = std::from_chars(first.data(), first.data() + first.size(), rounds);
    if (error != std::errc() || end != first.data() + first.size() || rounds < 1) {
        fmt::print(stderr, "host_rounds: a number of rounds is needed (usage: host_rounds ROUNDS LIBRARY)\n");
        return 2;
    }
    return all(rounds, argv[2]);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return main_of(argc, argv);
    } catch (const std::exception& e) {
        fmt::print(stderr, "host_rounds: {}\n", e.what());
        return 1;
    }
}
