// `zelhost replay`: plays a record again, and compares what comes out with what came out then.
#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <memory>
#include <optional>

#include "host/commands/commands.h"
#include "host/lib/console.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"
#include "host/lib/json_lines.h"
#include "host/lib/output.h"
#include "host/lib/session.h"
#include "host/record/comparison.h"
#include "host/record/input.h"
#include "host/record/player.h"
#include "host/record/recorder.h"

namespace zelhost {
namespace {

// What the command line asks for.
struct ReplayOptions {
    std::string record;
    std::string root;          // empty: the folder that the executable stands in
    std::string output = "-";  // "-" is standard output
    std::string log;           // empty: none
    bool compare = false;
    double speed = 0;  // 0: as fast as it goes
};

// The main thread does what the host did; what comes back is shown and compared on the threads of the session.
// Owns the session and all that the replay needs. The player orders the threads, and the comparison
// has a lock.
class Replay final : public Client {
public:
    explicit Replay(const ReplayOptions& options)
        : options_(options), reader_(options.record), folder_(options.root, settings_of(reader_.head())) {}

    ExitCode run();

private:
    // The settings of the record replace those of the agent folder, in a copy.
    static SettingsFiles settings_of(const record::Head& head) {
        return {head.settings().begin(), head.settings().end()};
    }
    void prepare_environment() const;
    std::string empty_file() const;
    void play_all();
    ExitCode tell() const;

    // Each call of the session goes to the player, which lets it wait for its turn.
    int32_t choose_next() override { return player_->next_of_bus(); }
    void on_delivery() override { player_->delivery(); }
    void on_delivered() override { player_->delivered(); }
    void on_send(const std::function<void()>& enqueue) override { player_->send(enqueue); }
    void on_event(MbFrame::IEvent&, const ST_PB_EVENT& record) override {
        take(output_of(record), [&] { return lines_.event(record); });
    }
    void on_memory_check(const ST_MEM_DETECT_INFO& info) override {
        // The line is made once and used twice: to be shown and to be compared.
        const std::string line = lines_.memory_check(info);
        take(output_of(line), [&]() -> const std::string& { return line; });
    }
    void on_answer(int code, uint32_t context, const char* buffer, uint32_t size) override {
        take(output_of(code, context, buffer, size), [&] { return lines_.answer(code, context, buffer, size); });
    }
    void on_report(std::string_view module, int32_t result, std::string_view text) override {
        take(output_of(module, result, text, false), [&] { return lines_.report(module, text); });
    }
    // A report is shown when it was shown then, as far as the record tells.
    // The line is only made when it is shown.
    template <class Line>
    void take(record::Output output, const Line& line) {
        // Shown while it is this thread's turn, so that lines stand in the order of the record.
        player_->output([&](const record::Output* then) {
            const bool shown = !output.has_report() || (then != nullptr && then->report().shown());
            if (output_ && shown) output_->show(line());
        });
        // Compared in any case. The command line decides what is told.
        comparison_.take(std::move(output));
    }

    // Members are made in this order and end in the opposite one. The session ends first, since its
    // threads use the others.
    const ReplayOptions options_;
    // While the session is played, the player alone reads it.
    RecordReader reader_;
    AgentFolder folder_;
    JsonLines lines_;
    Comparison comparison_;
    // None when only the comparison is wanted.
    std::optional<Output> output_;
    std::optional<Player> player_;
    std::optional<Session> session_;
    bool whole_ = false;  // the record ends with the stop
};

// The agent id is that of the record, and the log is nobody's unless it is asked for.
// Set before the libraries are loaded, because they read it then.
void Replay::prepare_environment() const {
    if (reader_.head().has_agent_id())
        setenv("agentid", reader_.head().agent_id().c_str(), 1);
    else
        unsetenv("agentid");
    if (!options_.log.empty() && !std::ofstream(options_.log))
        throw Failure("cannot write the log {}: {}", options_.log, strerror(errno));
    setenv("ZEL_LOG_FILE", options_.log.empty() ? "/dev/null" : options_.log.c_str(), 1);
    setenv("ZEL_LOG_LEVEL", options_.log.empty() ? "error" : "debug", 1);
}

// In the copy of the agent folder, which goes at the end.
// The plug-in opens it in place of a file that may not be there any more.
std::string Replay::empty_file() const {
    const std::string path = (folder_.root() / "replayed-file").string();
    if (!std::ofstream(path)) throw Failure("cannot write {}: {}", path, strerror(errno));
    return path;
}

// A record whose writer was killed has no stop, also when it ends with a complete entry.
// The main thread does what the host did then.
void Replay::play_all() {
    // From before the loading on, the questions of the plug-in go to the player.
    const OutsideGuard guard(folder_.plugin(), *player_);
    session_.emplace(folder_, *this);
    while (const auto input = player_->next_input()) {
        whole_ = input->has_call() && input->call() == record::STOP;
        // What the plug-in answers is seen by the comparison.
        play(*input, *session_);
    }
    // A record without a stop leaves the plug-in running.
    session_->stop();
}

// What is wrong with the record or with the plug-in is said first, and then the result.
ExitCode Replay::tell() const {
    const std::string departure = player_->departure();
    if (!departure.empty())
        console::say("the plug-in has departed from the record: {}; from there on its threads ran as they liked",
                     departure);
    if (!whole_)
        console::say("{} {}: it was played up to byte {}", options_.record,
                     reader_.damaged() ? "is damaged" : "was cut, since its writer was killed", reader_.read_bytes());
    if (output_ && output_->state() == Output::State::failed) throw Failure("{}", output_->error());
    if (!options_.compare) return kDone;
    const bool equal = comparison_.equal(!whole_);
    print(comparison_.text(!whole_) +
          (equal ? "all that came out is what the record has\n" : "NOT all that came out is what the record has\n"));
    return equal ? kDone : kFailed;
}

// Nothing is shown when only the comparison is wanted.
ExitCode Replay::run() {
    prepare_environment();
    if (!options_.compare || options_.output != "-") output_.emplace(options_.output, 0, [] {});
    player_.emplace(reader_, options_.speed, empty_file(),
                    [this](const record::Output& output, int64_t at_us) { comparison_.expect(output, at_us); });
    play_all();
    // The libraries are closed before the result is told. Their threads have ended by then.
    session_.reset();
    return tell();
}

constexpr const char* kFooter =
    R"(The plug-in of the agent folder gets what the plug-in got in the session: the same events and calls, and the same answers of
clocks, GUIDs, files and the trace module, in the same order over all threads. So the same plug-in gives out the same bytes.
Another plug-in may depart from the record. A line says where; from there on only the answers are those of the record.
Settings and agent id are those of the record, and the agent folder stays as it is: a copy is used.
With --compare messages of one kind and worker are matched in their order, and the first difference is shown field by field.)";

}  // namespace

// The options live as long as the action; the parser writes into them before.
Action prepare_replay(CLI::App& app) {
    const auto options = std::make_shared<ReplayOptions>();
    app.footer(kFooter);
    app.add_option("FILE", options->record, "Record, as zelhost run --record makes it")->required()->type_name("");
    app.add_flag("--compare", options->compare, "Compare with the record instead of showing what comes out");
    app.add_option_function<std::string>(
           "--speed",
           [options](const std::string& text) {
               char* end = nullptr;
               options->speed = text == "max" ? 0 : strtod(text.c_str(), &end);
               if (text != "max" && (end == text.c_str() || *end != '\0' || !(options->speed > 0)))
                   throw CLI::ValidationError("--speed", text + " is neither max nor a number above 0");
           },
           "How many times as fast as the session was; max is as fast as possible (max)")
        ->type_name("N|max");
    app.add_option("--root", options->root, "Agent folder; the one that zelhost stands in if not given")
        ->type_name("DIR");
    app.add_option("--output", options->output, "Where the JSON lines go, - for standard output (default)")
        ->type_name("FILE");
    app.add_option("--log", options->log, "The plug-in's log, at level debug; none if not given")->type_name("FILE");
    return [options] { return Replay(*options).run(); };
}

}  // namespace zelhost
