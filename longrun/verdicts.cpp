// Compares what libzelcheck.so says of documents with what the loaded plug-in makes of them: the verdict and every line
// of level ERROR and WARN. Looks, too, whether each refusal has a reason. The same documents go to both in the same
// order, for a refused document leaves something to the next one.
//
//   verdicts [DOCUMENTS [SEED]]
//   verdicts --one EVENT_ID      publishes standard input to a plug-in; used by the above, which expects an abort
//
// Exit code 1 if anything differs, otherwise 0.
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "check/zelcheck_host.h"
#include "host/lib/agent_folder.h"
#include "host/lib/clocks.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"
#include "host/lib/session.h"
#include "longrun/verdict_documents.h"
#include "platform/event_ids.h"
#include "platform/zel_support.h"

namespace {

using namespace zelhost;
using namespace std::chrono_literals;

// Far below the queue's limit, so that no document is shed.
constexpr size_t kBatch = 200;
constexpr auto kPatience = 60s;
constexpr size_t kShownDifferences = 10;
// Each takes a process of its own.
constexpr uint64_t kMostFatal = 1000;

// No traces: they would log, too, and wait for each other.
const std::vector<Setting> kSettings = {{"zelreshdl", "config", "queue_max", "500"},
                                        {"zelreshdl", "config", "interval", "1"},
                                        {"zelreshdl", "config", "trc_times", "0"}};

struct Item {
    uint32_t event_id;
    std::string text;
};

// What became of a document.
struct Outcome {
    const char* verdict = "refused";
    std::vector<std::string> lines;  // "ERROR ..." and "WARN ..."

    bool operator==(const Outcome& other) const { return strcmp(verdict, other.verdict) == 0 && lines == other.lines; }
};

// --- the plug-in ---

// Splits the log at the lines with which the alarm worker begins an event.
class Watcher : public Client {
public:
    // Outcomes since the last call, one for each document, when the sentinel has been handled. Throws Failure when it
    // is not.
    std::vector<Outcome> take() {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, kPatience, [this] { return sentinel_; }))
            throw Failure("the plug-in does not handle what it has got");
        sentinel_ = false;
        return std::exchange(outcomes_, {});
    }
    // GUIDs of the reports since the last call; the bus must be at rest.
    std::vector<std::string> take_guids() {
        const std::lock_guard lock(mutex_);
        return std::exchange(guids_, {});
    }

private:
    void on_log_line(const LogLine& logged) override {
        const std::string_view line = logged.text;
        const size_t behind = line.find(")] ");
        if (behind == std::string_view::npos) return;
        const std::string_view text = line.substr(behind + 3);
        const std::lock_guard lock(mutex_);
        if (text == "start handle 1536!" || text == "start handle 1538!") {
            outcomes_.emplace_back();
            repeated_ = false;
        }
        if (text.starts_with("ignore handle: ")) {
            sentinel_ = true;
            changed_.notify_one();
        }
        if (outcomes_.empty()) return;
        Outcome& outcome = outcomes_.back();
        if (logged.level <= ZEL_LOG_WARN)
            outcome.lines.push_back(fmt::format("{} {}", logged.level == ZEL_LOG_ERROR ? "ERROR" : "WARN", text));
        if (text.starts_with("Trigger rule only, skip.")) outcome.verdict = "skipped";
        if (text.starts_with("The alert has been repeated.")) repeated_ = true;
        if (text != "host alert,trace" && !text.starts_with("container alert, not trace.")) return;
        outcome.verdict = repeated_ ? "repeat" : "accepted";
    }

    void on_event(MbFrame::IEvent&, const ST_PB_EVENT& record) override {
        if (record.uEventId != event_id::first_report) return;
        const std::lock_guard lock(mutex_);
        guids_.emplace_back(record.pszGuid == nullptr ? "" : record.pszGuid);
    }

    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::vector<Outcome> outcomes_;
    std::vector<std::string> guids_;
    bool sentinel_ = false;
    bool repeated_ = false;  // the document in hand
};

// A plug-in that has been started. Its clock stands still, so that the filter forgets nothing.
class Plug {
public:
    Plug() : folder_(ZEL_AGENT_DIR, kSettings), session_(folder_, watcher_) {
        if (session_.start() != 0) throw Failure("plugin_init failed");
    }
    ~Plug() { session_.stop(); }

    std::vector<Outcome> play(const std::vector<Item>& items) {
        for (const Item& item : items) session_.publish(item.event_id, item.text.data(), item.text.size());
        session_.publish(event_id::ignored, "", 0);
        std::vector<Outcome> outcomes = watcher_.take();
        session_.drain();
        return outcomes;
    }
    std::vector<std::string> take_guids() { return watcher_.take_guids(); }

private:
    Watcher watcher_;
    AgentFolder folder_;
    Session session_;
};

int publish_one(const char* event_id) {
    Plug plug;
    plug.play({{static_cast<uint32_t>(strtoul(event_id, nullptr, 10)), read_file("-")}});
    return 0;
}

// Whether a process of its own with a plug-in is aborted by the document. What it prints at its end is not wanted.
bool ends_process(const Item& item) {
    const pid_t child = [&] {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) throw Failure("no pipe: {}", strerror(errno));
        const pid_t pid = fork();
        if (pid == 0) {
            dup2(ends[0], STDIN_FILENO);
            const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
            dup2(nowhere, STDERR_FILENO);
            const std::string id = std::to_string(item.event_id);
            execl("/proc/self/exe", "verdicts", "--one", id.c_str(), nullptr);
            _exit(127);
        }
        close(ends[0]);
        const ssize_t written = write(ends[1], item.text.data(), item.text.size());
        close(ends[1]);
        if (pid < 0 || written != static_cast<ssize_t>(item.text.size())) throw Failure("no process for a document");
        return pid;
    }();
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
}

// --- the checker ---

const char* verdict_word(zelcheck_verdict verdict) {
    switch (verdict) {
        case ZELCHECK_ACCEPTED: return "accepted";
        case ZELCHECK_REPEAT: return "repeat";
        case ZELCHECK_SKIPPED: return "skipped";
        case ZELCHECK_REFUSED: return "refused";
        default: return "fatal";
    }
}

class Comparison {
public:
    Comparison(const std::string& folder, uint32_t seed) : documents_(folder, seed) {
        if (zelcheck_open(ZEL_LOG_WARN, &checker_) != 0) throw Failure("no memory for a checker");
    }
    ~Comparison() { zelcheck_close(checker_); }
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;

    // True when nothing differs.
    bool run(uint64_t count) {
        while (documents_made_ < count) batch(std::min<uint64_t>(kBatch, count - documents_made_));
        fmt::print(
            "{} documents, {} verdicts equal, {} fatal confirmed of {}; accepted {}, repeats {}, skipped {}, "
            "refused {}\n",
            documents_made_, equal_, confirmed_, fatal_, verdicts_["accepted"], verdicts_["repeat"],
            verdicts_["skipped"], verdicts_["refused"]);
        return differences_ == 0;
    }

private:
    // Fatal documents are tried elsewhere. A good one takes the place of each in the plug-in, for what the documents
    // before have left must go there, too.
    void batch(uint64_t size) {
        std::vector<Item> items;
        std::vector<std::optional<Outcome>> expected;
        std::vector<std::string> guids;
        for (uint64_t i = 0; i < size; ++i, ++documents_made_) {
            Item item{i % 4 == 3 ? event_id::memory_trojan : event_id::ioa_alert, documents_.next()};
            const zelcheck_result* result = nullptr;
            if (zelcheck_document(checker_, item.event_id, item.text.data(), item.text.size(), &result) != 0)
                throw Failure("no memory to check a document");
            look_at_findings(*result, item.text);
            if (result->verdict == ZELCHECK_FATAL) {
                try_fatal(item);
                items.push_back({event_id::ioa_alert, documents_.good()});
                expected.emplace_back();
                continue;
            }
            const Outcome outcome = outcome_of(*result);
            ++verdicts_[outcome.verdict];
            if (result->verdict <= ZELCHECK_REPEAT) guids.emplace_back(result->guid == nullptr ? "" : result->guid);
            items.push_back(std::move(item));
            expected.push_back(outcome);
        }
        compare(items, expected, guids);
    }

    static Outcome outcome_of(const zelcheck_result& result) {
        Outcome outcome{verdict_word(result.verdict), {}};
        for (size_t i = 0; i < result.line_count; ++i)
            outcome.lines.push_back(
                fmt::format("{} {}", result.lines[i].level == ZEL_LOG_ERROR ? "ERROR" : "WARN", result.lines[i].text));
        return outcome;
    }

    // A refusal has a reason of its own, and every place lies in the document.
    void look_at_findings(const zelcheck_result& result, const std::string& text) {
        const bool refused = result.verdict == ZELCHECK_REFUSED || result.verdict == ZELCHECK_FATAL;
        if (refused != (result.refusal != nullptr)) return difference("a refusal without a finding", text);
        if (refused && strcmp(result.refusal->reason, ZELCHECK_UNEXPLAINED) == 0)
            difference("a refusal without a reason", text);
        const auto outside = [&](const zelcheck_finding& finding) {
            return finding.offset + finding.size > text.size();
        };
        if ((refused && outside(*result.refusal)) ||
            std::any_of(result.warnings, result.warnings + result.warning_count, outside))
            difference("a finding behind the document's end", text);
    }

    void try_fatal(const Item& item) {
        if (++fatal_ > kMostFatal) return;
        if (ends_process(item))
            ++confirmed_;
        else
            difference("a document does not end the process", item.text);
    }

    void compare(const std::vector<Item>& items, const std::vector<std::optional<Outcome>>& expected,
                 const std::vector<std::string>& guids) {
        const std::vector<Outcome> outcomes = plug_.play(items);
        if (outcomes.size() != items.size())
            return difference("the plug-in took up another number of documents", std::to_string(outcomes.size()));
        for (size_t i = 0; i < items.size(); ++i) {
            if (!expected[i].has_value()) continue;
            if (*expected[i] == outcomes[i])
                ++equal_;
            else
                difference(fmt::format("checked:\n{}\nthe plug-in:\n{}\n", shown(*expected[i]), shown(outcomes[i])),
                           items[i].text);
        }
        // The good documents have GUIDs, too, so that only a batch without them can be compared.
        const std::vector<std::string> reported = plug_.take_guids();
        const bool whole = std::ranges::all_of(expected, [](const auto& outcome) { return outcome.has_value(); });
        if (whole && reported != guids)
            difference("the reports carry other GUIDs", fmt::format("{} instead of {}", reported.size(), guids.size()));
    }

    static std::string shown(const Outcome& outcome) {
        return fmt::format("  {}: {}", outcome.verdict, fmt::join(outcome.lines, " / "));
    }

    void difference(const std::string& what, const std::string& text) {
        if (++differences_ <= kShownDifferences) fmt::print(stderr, "verdicts: {}\n  {}\n", what, text);
    }

    VerdictDocuments documents_;
    zelcheck* checker_ = nullptr;
    Plug plug_;
    std::map<std::string, uint64_t> verdicts_;
    uint64_t documents_made_ = 0;
    uint64_t equal_ = 0;
    uint64_t fatal_ = 0;
    uint64_t confirmed_ = 0;
    uint64_t differences_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    setenv("agentid", "check", 1);
    setenv("ZEL_LOG_FILE", "/dev/null", 0);
    setenv("ZEL_LOG_LEVEL", "error", 0);
    clocks::replace_ticks([] { return uint64_t{0}; });
    try {
        if (argc == 3 && strcmp(argv[1], "--one") == 0) return publish_one(argv[2]);
        const uint64_t count = argc > 1 ? strtoull(argv[1], nullptr, 10) : 100000;
        const auto seed = static_cast<uint32_t>(argc > 2 ? strtoul(argv[2], nullptr, 10) : 1);
        return Comparison(ZEL_DOCUMENTS, seed).run(count) ? 0 : 1;
    } catch (const std::exception& e) {
        fmt::print(stderr, "verdicts: {}\n", e.what());
        return 1;
    }
}
