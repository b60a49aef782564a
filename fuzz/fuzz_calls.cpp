// A sequence of calls of the built plug-in's ten exports, of events, and of answers of the trace module, in an agent
// folder of the target's own. Every call answers as its contract says, every event and trace has its end, and a stop
// leaves nothing on the bus.
#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
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
using zelhost::Session;

constexpr auto kPatience = 20s;
constexpr size_t kMostCalls = 64;
// Short pauses and few attempts; a queue that 64 calls fill.
constexpr std::string_view kSettings =
    "[config]\nqueue_max=50\ninterval=1\ntrace_val=50\ntrc_times=3\nioa_match_queue_size=5\n"
    "disable_scan_scenario_limit=3\n[cache]\ncache_size=10\ndie_check_time=1\ndie_time_linux=1\ndie_num=30\n";

// The trace module's side: how it answers, and which results are out.
struct TraceModule {
    std::mutex mutex;
    uint8_t answers = 0;  // two bits for each of the four functions
    uint64_t calls = 0;
    std::set<const char*> out;
};
TraceModule& g_module = *new TraceModule;

// Links to the staged agent, but for the settings and the trace module. Removed when the process ends.
struct Folder {
    Folder() : root((fs::temp_directory_path() / "fuzz_callsXXXXXX").string()) {
        FUZZ_CHECK(mkdtemp(root.data()) != nullptr);
        for (const auto& entry : fs::recursive_directory_iterator(ZEL_AGENT_DIR)) {
            const fs::path copy = root / entry.path().lexically_relative(ZEL_AGENT_DIR);
            if (entry.is_directory())
                fs::create_directory(copy);
            else
                fs::create_symlink(entry.path(), copy);
        }
        const fs::path settings = fs::path(root) / "reshdl/config/zelreshdl.ini";
        const fs::path module = fs::path(root) / "reshdl/lib/libzeltrc.so";
        fs::remove(settings);
        fs::remove(module);
        std::ofstream(settings) << kSettings;
        fs::create_symlink(FUZZ_SCRIPTED, module);
        zelhost::overrides::redirect_flag_folder(root);
        clocks::set_longest_sleep(50us);
        setenv("agentid", "fuzz", 1);
        setenv("ZEL_LOG_FILE", "/dev/null", 1);
    }
    ~Folder() { fs::remove_all(root); }

    std::string root;
};

class Player final : zelhost::Client {
public:
    Player() : agent_(folder_.root, {}), session_(agent_, *this) {}

    void play(fuzz::Bytes& input);

private:
    struct Call {
        int weight;
        void (Player::*act)(fuzz::Bytes& input);
    };
    static const Call kCalls[];

    void on_answer(int code, uint32_t, const char*, uint32_t) override { process_answers_ += code == 10 ? 1 : 0; }
    bool pause_publishing() override { return false; }

    void start(fuzz::Bytes&);
    void stop(fuzz::Bytes&);
    void plain(fuzz::Bytes&);
    void configure(fuzz::Bytes& input);
    void file_trace(fuzz::Bytes& input);
    void process_trace(fuzz::Bytes& input);
    void reset(fuzz::Bytes& input);
    void event(fuzz::Bytes& input);
    void hit(fuzz::Bytes& input);
    void alert(fuzz::Bytes& input);
    void answer(fuzz::Bytes& input);
    void later(fuzz::Bytes& input);
    void settle(fuzz::Bytes&);
    void collect(fuzz::Bytes& input);

    void wait_for_ends();
    int expected_of_trace(bool valid) const { return resetting_ ? -2 : !valid ? -1 : 0; }

    Folder folder_;
    zelhost::AgentFolder agent_;
    Session session_;
    std::chrono::seconds now_{1'700'000'000};
    bool running_ = false;
    bool resetting_ = false;
    uint64_t process_answers_ = 0;
    uint64_t alerts_ = 0;
    zelhost::Left discarded_;
};

const Player::Call Player::kCalls[] = {
    {1, &Player::start},      {1, &Player::stop},          {1, &Player::plain},  {2, &Player::configure},
    {3, &Player::file_trace}, {3, &Player::process_trace}, {3, &Player::reset},  {6, &Player::event},
    {4, &Player::hit},        {8, &Player::alert},         {3, &Player::answer}, {3, &Player::later},
    {2, &Player::settle},     {1, &Player::collect},
};

void Player::play(fuzz::Bytes& input) {
    static const int weights = [] {
        int sum = 0;
        for (const Call& call : kCalls) sum += call.weight;
        return sum;
    }();
    start(input);
    for (size_t i = 0; i < kMostCalls && !input.empty(); ++i) {
        int choice = static_cast<int>(input.below(static_cast<uint32_t>(weights)));
        const Call* call = kCalls;
        while (choice >= call->weight) choice -= call++->weight;
        (this->*call->act)(input);
    }
    if (!running_) return;
    settle(input);
    stop(input);
}

// --- the exports ---

// A second start without a stop between is one that succeeds.
void Player::start(fuzz::Bytes&) {
    // The trace worker sleeps through a reset period, and a stop in it leaves the period open.
    if (resetting_) return;
    FUZZ_CHECK(session_.start() == 0);
    running_ = true;
}

// What a stop discards is known by what has no end after it.
void Player::stop(fuzz::Bytes&) {
    if (!running_) return;
    session_.stop();
    running_ = false;
    const zelhost::Account account = session_.account();
    discarded_ = account.left;
    FUZZ_CHECK(account.bus.alive == 0 && account.bus.late == 0 && account.bus.frames == 0);
    FUZZ_CHECK(discarded_.at_intake == 0 && discarded_.events >= 0 && discarded_.traces >= 0);
}

void Player::plain(fuzz::Bytes&) {
    const zelhost::Plugin& plugin = session_.plugin();
    FUZZ_CHECK(plugin.start() == 0 && plugin.update() == 0 && plugin.stop() == 0);
}

void Player::configure(fuzz::Bytes& input) {
    static constexpr struct {
        const char* text;
        int answer;
    } kRows[] = {{R"({"delay_time":"60000","queue_size":"50"})", 0},
                 {R"({"delay_time":"no number","queue_size":"3"})", 0},
                 {R"({"delay_time":"36000001","queue_size":"0"})", 0},
                 {R"({"delay_time":60000,"queue_size":"100"})", -1},
                 {R"({"queue_size":"100"})", -1},
                 {"{", -1},
                 {"", -1},
                 {nullptr, -1}};
    const auto& row = kRows[input.below(std::size(kRows))];
    const auto size = static_cast<uint32_t>(row.text != nullptr ? strlen(row.text) : 1);
    FUZZ_CHECK(session_.configure(row.text, size) == row.answer);
}

void Player::file_trace(fuzz::Bytes& input) {
    const bool valid = input.below(4) != 0;
    const auto kind = static_cast<int>(input.below(3));
    const std::string path(input.text());
    const int answer = session_.file_trace(valid ? path.c_str() : nullptr, "key", kind, input.byte());
    FUZZ_CHECK(answer == expected_of_trace(valid));
}

// Without the trace module, before a start and after a stop, it fails. The callback comes before the answer.
void Player::process_trace(fuzz::Bytes& input) {
    const std::string data(input.text());
    const uint64_t before = process_answers_;
    const int answer = session_.process_trace(data.c_str(), static_cast<uint32_t>(data.size()), input.byte());
    FUZZ_CHECK(answer == expected_of_trace(running_ && !data.empty()));
    FUZZ_CHECK(process_answers_ == before + (answer == 0 ? 1 : 0));
}

// What was on its way before the period has its end; in it events are let go without a line.
void Player::reset(fuzz::Bytes&) {
    if (!running_) return;
    wait_for_ends();
    session_.reset_begin();
    resetting_ = true;
    FUZZ_CHECK(session_.file_trace("/tmp/x", "key", 1, 0) == -2);
    FUZZ_CHECK(session_.process_trace("{}", 2, 0) == -2);
    session_.reset_end();
    resetting_ = false;
}

// --- events ---

void Player::event(fuzz::Bytes& input) {
    static constexpr uint32_t kIds[] = {534, 1536, 1537, 1538, 1540, 1541, 1542, 1543, 1544, 1793, 1794, 2304};
    const uint32_t id = kIds[input.below(std::size(kIds))];
    const std::string payload(input.text());
    session_.publish(id, payload.data(), payload.size());
}

void Player::hit(fuzz::Bytes& input) {
    const zelhost::DnsEvent event(R"({"path":"/usr/bin/curl","domain":"a.example","pid":)" +
                                  std::to_string(input.below(16)) + "}");
    session_.publish(event.native(), event.query_name());
}

// One alert after another, or one that repeats the one before; of a container, or with rules that do not count.
void Player::alert(fuzz::Bytes& input) {
    const uint32_t choice = input.below(16);
    zelhost::Alert alert;
    alert.number = static_cast<int64_t>(choice % 4 == 0 ? alerts_ : ++alerts_);
    if (choice == 5) alert.container = "c1";
    if (choice == 6) alert.rules[0].status = "Trigger";
    if (choice == 7) alert.rules[0].id = "XDR-IOA-1";
    if (choice == 9) alert.rules[0].events.resize(1 + input.below(8));
    if (choice == 10) alert.type = 2, alert.process_set.resize(2);
    static constexpr const char* kLevels[] = {"low", "medium", "high", "critical", "none"};
    alert.level = kLevels[input.below(std::size(kLevels))];
    const std::string text = alert.text();
    session_.publish(choice == 11 ? 1538 : 1536, text.data(), text.size());
}

// --- the world around ---

void Player::answer(fuzz::Bytes& input) {
    const std::lock_guard lock(g_module.mutex);
    g_module.answers = input.byte();
}

// The clock of retries, and at times that of the caches. The machine's own goes on, for the fuzzer.
void Player::later(fuzz::Bytes& input) {
    now_ += std::chrono::seconds(input.below(32));
    clocks::stand_still(clocks::whole_seconds, now_);
}

void Player::settle(fuzz::Bytes&) {
    if (running_) wait_for_ends();
}

void Player::collect(fuzz::Bytes& input) {
    static constexpr uint32_t kSizes[] = {0, 1, 64, 65536};
    if (running_) session_.collect(kSizes[input.below(std::size(kSizes))]);
}

// The trace module answers "complete" meanwhile, and retries are due at once.
void Player::wait_for_ends() {
    const auto deadline = clocks::machine_now() + kPatience;
    {
        const std::lock_guard lock(g_module.mutex);
        g_module.answers = 0;
    }
    const bool settled = session_.wait_until_settled(discarded_, [&](const Session::Open&) {
        now_ += 15s;
        clocks::stand_still(clocks::whole_seconds, now_);
        std::this_thread::sleep_for(200us);
        return clocks::machine_now() < deadline;
    });
    if (!settled) {
        const zelhost::Left left = session_.account().left;
        fprintf(stderr, "without an end: intake %ld, queue %ld, worker %ld, kov %ld, traces %ld\n",
                static_cast<long>(left.at_intake), static_cast<long>(left.events), static_cast<long>(left.on_worker),
                static_cast<long>(left.kov), static_cast<long>(left.traces));
    }
    FUZZ_CHECK(settled);
}

}  // namespace

// Called on the plug-in's threads. The result is the input, if there is one.
int32_t scripted_call(uint32_t function, const char* input, uint32_t input_size, char** result, uint32_t* result_size) {
    const std::lock_guard lock(g_module.mutex);
    if (function == ZELTRC_INIT || function == ZELTRC_UNINIT) return 0;
    if (function == ZELTRC_RELEASE) {
        FUZZ_CHECK(*result == nullptr || g_module.out.erase(*result) == 1);
        free(*result);
        return 0;
    }
    static constexpr int32_t kCodes[] = {ZEL_TRC_COMPLETE, ZEL_TRC_NOT_READY, ZEL_TRC_DROPPED, -5};
    const uint32_t choice = (g_module.answers >> (2 * (function - ZELTRC_COMPLETION))) & 3;
    if (choice == 1 || (choice == 3 && ++g_module.calls % 2 == 0)) return kCodes[choice];
    *result = static_cast<char*>(malloc(input_size + 1));
    memcpy(*result, input, input_size);
    *result_size = input_size;
    g_module.out.insert(*result);
    return kCodes[choice];
}

int32_t scripted_class_object(void**) { return -1; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Player player;
    fuzz::Bytes input(data, size);
    player.play(input);
    return 0;
}
