// A sequence of calls of the built plug-in's ten exports, of events, and of answers of the trace module, in an agent
// folder of the target's own. Every call answers as its contract says, every event and trace has its end, and a stop
// leaves nothing on the bus.
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "fuzz.h"
#include "host/lib/alert.h"
#include "host/lib/dns_event.h"
#include "host/lib/overrides.h"
#include "host/lib/session.h"
#include "platform/zel_trc.h"
#include "standin/scripted/scripted_host.h"

namespace fs = std::filesystem;
namespace clocks = zelhost::clocks;

namespace {

using namespace std::chrono_literals;

// Of a busy machine; the fuzzer gives an input a little more.
constexpr auto kPatience = 50s;
constexpr size_t kMostCalls = 64;
// Short pauses, few attempts, and a queue and a cache that so many calls fill.
constexpr const char* kSettings =
    "[config]\nqueue_max=50\ninterval=1\ntrc_times=3\nioa_match_queue_size=5\ndisable_scan_scenario_limit=3\n"
    "[cache]\ncache_size=10\ndie_check_time=1\ndie_time_linux=1\ndie_num=30\n";

// The trace module's side, on the plug-in's threads: how it answers, and which results are out.
std::mutex g_mutex;
uint8_t g_answers = 0;  // two bits for each of the four functions that work on a message
uint64_t g_failures = 0;
std::set<const char*>& g_results = *new std::set<const char*>;

// Links to the staged agent, but for the settings and the trace module. Removed when the process ends.
struct Folder {
    Folder() {
        FUZZ_CHECK(mkdtemp(root.data()) != nullptr);
        for (const auto& entry : fs::recursive_directory_iterator(ZEL_AGENT_DIR)) {
            const fs::path copy = root / entry.path().lexically_relative(ZEL_AGENT_DIR);
            if (entry.is_directory())
                fs::create_directory(copy);
            else if (copy.filename() == "zelreshdl.ini")
                std::ofstream(copy) << kSettings;
            else if (copy.filename() != "libzeltrc.so")
                fs::create_symlink(entry.path(), copy);
        }
        fs::create_symlink(FUZZ_SCRIPTED, root + "/reshdl/lib/libzeltrc.so");
        zelhost::overrides::redirect_flag_folder(root);
        clocks::set_longest_sleep(50us);
        setenv("agentid", "fuzz", 1);
        setenv("ZEL_LOG_FILE", "/dev/null", 0);
    }
    ~Folder() { fs::remove_all(root); }

    std::string root = (fs::temp_directory_path() / "fuzz_callsXXXXXX").string();
};

class Player final : zelhost::Client {
public:
    explicit Player(const std::string& root) : agent_(root, std::vector<zelhost::Setting>{}), session_(agent_, *this) {}

    void play(fuzz::Bytes input) {
        start();
        for (size_t i = 0; i < kMostCalls && !input.empty(); ++i) call(input);
        if (running_) wait_for_ends();
        if (running_) stop();
    }

private:
    void on_answer(int code, uint32_t, const char*, uint32_t) override { process_answers_ += code == 10 ? 1 : 0; }
    bool pause_publishing() override { return false; }

    void call(fuzz::Bytes& input);
    void start();
    void stop();
    void reset();
    void configure(uint32_t choice);
    void process_trace(const std::string& data);
    void alert(uint32_t choice, uint32_t level);
    void wait_for_ends();
    void set_clock(std::chrono::seconds ahead) { clocks::stand_still(clocks::whole_seconds, now_ += ahead); }

    zelhost::AgentFolder agent_;
    zelhost::Session session_;
    std::chrono::seconds now_{1'700'000'000};
    bool running_ = false;
    std::atomic<uint64_t> process_answers_ = 0;
    int64_t alerts_ = 0;
    zelhost::Left discarded_;
};

void Player::call(fuzz::Bytes& input) {
    static constexpr uint32_t kEvents[] = {534, 1536, 1537, 1538, 1540, 1541, 1542, 1543, 1544, 1793, 1794, 2304};
    static constexpr uint32_t kReportSizes[] = {0, 1, 64, 65536};
    switch (input.below(20)) {
        case 0: return start();
        case 1: return stop();
        case 2: return reset();
        case 3: return configure(input.byte());
        case 4: return wait_for_ends();
        case 5: return set_clock(std::chrono::seconds(input.below(32)));
        case 6: return session_.collect(kReportSizes[input.below(std::size(kReportSizes))]);
        case 7: return process_trace(std::string(input.text()));
        case 8: {
            const zelhost::Plugin& plugin = session_.plugin();
            FUZZ_CHECK(plugin.start() == 0 && plugin.update() == 0 && plugin.stop() == 0);
            return;
        }
        case 9: {
            const bool valid = input.below(4) != 0;
            const std::string path(input.text());
            const auto kind = static_cast<int>(input.below(3));
            FUZZ_CHECK(session_.file_trace(valid ? path.c_str() : nullptr, "key", kind, 1) == (valid ? 0 : -1));
            return;
        }
        case 10: {
            const std::lock_guard lock(g_mutex);
            g_answers = input.byte();
            return;
        }
        case 11:
        case 12: {
            const zelhost::DnsEvent hit(R"({"domain":"a.example","pid":)" + std::to_string(input.below(16)) + "}");
            session_.publish(hit.native(), hit.query_name());
            return;
        }
        case 13:
        case 14:
        case 15: {
            const uint32_t id = kEvents[input.below(std::size(kEvents))];
            const std::string payload(input.text());
            session_.publish(id, payload.data(), payload.size());
            return;
        }
        default: {
            const uint32_t choice = input.below(16);
            return alert(choice, input.byte());
        }
    }
}

// A second start without a stop between succeeds, too. What was asked for while it was stopped has no end.
void Player::start() {
    if (!running_) discarded_ = session_.account().left;
    FUZZ_CHECK(session_.start() == 0);
    running_ = true;
}

// What the stop discarded is what has no end after it.
void Player::stop() {
    if (!running_) return;
    session_.stop();
    running_ = false;
    const zelhost::Account account = session_.account();
    FUZZ_CHECK(account.bus.alive == 0 && account.bus.late == 0 && account.bus.frames == 0);
    FUZZ_CHECK(account.left.at_intake == 0 && account.left.on_worker == 0);
    FUZZ_CHECK(account.left.events >= discarded_.events && account.left.traces >= discarded_.traces);
}

// In the period events are let go without a line, so none is on its way.
void Player::reset() {
    if (!running_) return;
    wait_for_ends();
    session_.reset_begin();
    FUZZ_CHECK(session_.file_trace("/tmp/x", "key", 1, 0) == -2 && session_.process_trace("{}", 2, 0) == -2);
    session_.reset_end();
}

void Player::configure(uint32_t choice) {
    static constexpr std::pair<const char*, int> kRows[] = {{R"({"delay_time":"60000","queue_size":"50"})", 0},
                                                            {R"({"delay_time":"no number","queue_size":"3"})", 0},
                                                            {R"({"delay_time":"36000001","queue_size":"0"})", 0},
                                                            {R"({"delay_time":60000,"queue_size":"100"})", -1},
                                                            {R"({"queue_size":"100"})", -1},
                                                            {"{", -1},
                                                            {"", -1},
                                                            {nullptr, -1}};
    const auto& [text, answer] = kRows[choice % std::size(kRows)];
    FUZZ_CHECK(session_.configure(text, static_cast<uint32_t>(text != nullptr ? strlen(text) : 1)) == answer);
}

// The callback comes before the answer. Without the trace module, while the plug-in is stopped, there is none.
void Player::process_trace(const std::string& data) {
    const uint64_t before = process_answers_;
    const int expected = running_ && !data.empty() ? 0 : -1;
    FUZZ_CHECK(session_.process_trace(data.c_str(), static_cast<uint32_t>(data.size()), 2) == expected);
    FUZZ_CHECK(process_answers_ == before + (expected == 0 ? 1 : 0));
}

// Most are new; some repeat the one before, come from a container, or have rules that do not count.
void Player::alert(uint32_t choice, uint32_t level) {
    static constexpr const char* kLevels[] = {"low", "medium", "high", "critical", "none"};
    zelhost::Alert alert;
    alert.number = choice % 4 == 0 ? alerts_ : ++alerts_;
    alert.level = kLevels[level % std::size(kLevels)];
    if (choice == 5) alert.container = "c1";
    if (choice == 6) alert.rules[0].status = "Trigger";
    if (choice == 7) alert.rules[0].id = "XDR-IOA-1";
    if (choice == 9) alert.rules[0].events.resize(1 + level % 8);
    if (choice == 10) alert.type = 2, alert.process_set.resize(2);
    const std::string text = alert.text();
    session_.publish(choice == 11 ? 1538 : 1536, text.data(), text.size());
}

// From here on the trace module completes what it is asked for, and every retry is due at once.
void Player::wait_for_ends() {
    if (!running_) return;
    {
        const std::lock_guard lock(g_mutex);
        g_answers = 0;
    }
    const auto deadline = clocks::machine_now() + kPatience;
    FUZZ_CHECK(session_.wait_until_settled(discarded_, [&](const zelhost::Session::Open&) {
        set_clock(15s);
        std::this_thread::sleep_for(200us);
        return clocks::machine_now() < deadline;
    }));
}

}  // namespace

int32_t scripted_call(uint32_t function, const char* input, uint32_t size, char** result, uint32_t* result_size) {
    static constexpr int32_t kCodes[] = {ZEL_TRC_COMPLETE, ZEL_TRC_NOT_READY, ZEL_TRC_DROPPED, -5};
    if (function == ZELTRC_INIT || function == ZELTRC_UNINIT) return 0;
    const std::lock_guard lock(g_mutex);
    if (function == ZELTRC_RELEASE) {
        FUZZ_CHECK(*result == nullptr || g_results.erase(*result) == 1);
        free(*result);
        return 0;
    }
    const int32_t code = kCodes[(g_answers >> (2 * (function - ZELTRC_COMPLETION))) & 3];
    // Every second failure has a result all the same.
    if (code == ZEL_TRC_NOT_READY || (code == -5 && ++g_failures % 2 == 0)) return code;
    *result = static_cast<char*>(malloc(size + 1));
    memcpy(*result, input, size);
    *result_size = size;
    g_results.insert(*result);
    return code;
}

int32_t scripted_class_object(void**) { return -1; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Folder folder;
    // Never destroyed: the plug-in stays loaded.
    static Player& player = *new Player(folder.root);
    player.play({data, size});
    return 0;
}
