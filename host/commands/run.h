// `zelhost run`: plays a script of events to the plug-in of an agent folder and shows what it gives out.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/lib/agent_folder.h"
#include "host/lib/color.h"
#include "host/lib/event_filter.h"
#include "host/lib/exit_codes.h"
#include "host/lib/json_lines.h"
#include "host/lib/line_reader.h"
#include "host/lib/metrics.h"
#include "host/lib/output.h"
#include "host/lib/payload.h"
#include "host/lib/pretty_lines.h"
#include "host/lib/session.h"
#include "host/lib/sink.h"
#include "host/lib/status_line.h"
#include "host/lib/stop_signal.h"
#include "host/lib/ticker.h"
#include "host/record/recorder.h"

namespace zelhost {

// The form of the summary at the end.
enum class Summary { text, json, none };

// Names of the log's levels, in the order of their numbers.
inline constexpr const char* kLogLevels[] = {"error", "warn", "info", "debug"};

// What the command line asks for.
// Filled by the parser. It does not change any more once the run has begun.
struct RunOptions {
    std::string root;          // empty: the folder that the executable stands in
    std::string input = "-";   // "-" is standard input
    std::string output = "-";  // "-" is standard output
    std::string log;           // empty: what the environment says, else standard error
    std::string log_level;     // empty: debug with `log`, else warn
    std::chrono::milliseconds idle{300};
    std::chrono::seconds max_wait{180};
    bool follow = false;
    EventFilter filter;
    uint64_t limit = 0;  // 0: none
    bool pretty = false;
    ColorMode color = ColorMode::automatic;
    std::string metrics;  // empty: none
    std::string record;   // likewise
    SinkOptions sink;
    Summary summary = Summary::text;
    std::vector<Setting> settings;
};

// One run. The main thread plays the script and waits; what comes back is written on the threads of the session, as
// Client says. A ticker's thread shows meanwhile how it goes.
class Run : public Client {
public:
    // Copies the options. Nothing is opened yet.
    explicit Run(const RunOptions& options);

    // Does all steps and then the teardown. It does not throw: failures are said, and the exit code
    // tells the worst.
    ExitCode run();

private:
    // Set-up, in this order; each throws Failure.
    // All steps run on the main thread.
    void find_agent();
    void prepare_log();
    void open_files();
    void load();
    void start();
    void play_input();
    void wait_for_the_rest();
    void collect_last_reports();
    // Teardown: all of it, whatever happened before.
    void stop();
    void end_record();
    void close_sink();
    void end_showing();
    void check_output();
    void sum_up();
    void unload();
    void remove_copy();

    // The name of a step is for messages. The function is one of those above.
    struct Step {
        const char* name;  // "cannot NAME", for a failure that does not say enough itself
        void (Run::*act)();
    };
    static const Step kSteps[];
    // The first list is what a run does. The second is what must be done at its end in any case.
    static const Step kTeardown[];
    // Takes one step and says its failure; false when it failed.
    bool take(const Step& step);
    // For the summary. The text lives as long as the process.
    const char* how_it_ended() const;
    // Whether something ended the run before its input and its traces did.
    // A signal, and the limit or the end of the output, which ask for a stop in the same way.
    bool cut_short() const { return stop_signal_.requested(); }

    // --- the script, in run_script.cpp ---

    // An action of the script: its name and the function that does it.
    struct ScriptAction;
    static const ScriptAction kActions[];
    // Does what one line of the input asks for. Throws Failure when the line cannot be understood.
    void play_line(std::string_view line);
    // One for each form of a line. Each throws Failure for keys and values that it does not know, before it does
    // anything.
    void play_event(const JsonText& line);
    // Says an event that nobody takes, once for each kind.
    void note(uint32_t event_id, Session::Published published);
    // Publishes bytes; no payload is a null pointer.
    void publish_bytes(uint32_t event_id, const Payload& payload);
    // Says an answer of an export that is not 0.
    void say_answer(const char* function, int answer) const;
    void sleep(const JsonText& line);
    void wait(const JsonText& line);
    void reset_begin(const JsonText& line);
    void reset_end(const JsonText& line);
    void configure(const JsonText& line);
    void file_trace(const JsonText& line);
    void process_trace(const JsonText& line);
    void report(const JsonText& line);

    // Waits until the pipeline is idle, with `traces` also until no trace is open. Gives up when a signal comes or the
    // longest wait has passed, and notes the latter.
    // The progress line shows what is waited for.
    void wait_until_idle(bool traces);

    // --- what is shown, in run_live.cpp ---

    // From here on the ticker shows how the run goes.
    void show_from_now_on();
    // The ticker's thread, five times a second.
    void tick();
    // What the metrics say of the run itself. The main thread or the ticker's.
    RunProgress progress_of_run() const;
    // Nothing where the status line stands.
    void progress(const std::string& text) const;

    // Of Client: keep what goes in, and write what comes back as lines.
    void on_input(const Input& input) override;
    void on_input_done(const Input& input) override;
    void on_delivery() override;
    void on_delivered() override;
    void on_send(const std::function<void()>& enqueue) override;
    void on_log_line(const LogLine& line) override;
    void on_event(MbFrame::IEvent& event, const ST_PB_EVENT& record) override;
    void on_memory_check(const ST_MEM_DETECT_INFO& info) override;
    void on_answer(int code, uint32_t context, const char* buffer, uint32_t size) override;
    void on_report(std::string_view module, int32_t result, std::string_view text) override;
    bool pause_publishing() override;

    // Members that are set before the session is made need no lock. The atomic ones are read by the
    // ticker meanwhile.
    const RunOptions options_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    // In the order in which they are made. The session is the last and so ends first.
    StopSignal stop_signal_;
    std::string log_place_;  // where the log goes, for people
    std::optional<AgentFolder> folder_;
    int console_log_level_ = -1;  // up to which this program writes the log to standard error; -1 when a library does
    JsonLines json_lines_;
    PrettyLines pretty_lines_;
    const EventLines& lines_;  // one of these two
    std::optional<Output> output_;
    std::optional<LineReader> input_;
    std::optional<MetricsFile> metrics_;
    std::optional<Recorder> recorder_;
    std::mutex showing_;                   // so that what is shown comes in the order of the record
    std::optional<OutsideGuard> outside_;  // ends when the plug-in has stopped
    std::optional<Sink> sink_;
    std::optional<Session> session_;
    const bool status_shown_;
    std::atomic<bool> running_ = false;  // from the start of the ticker to its end
    // The ticker's own, while it runs.
    StatusLine status_line_{begin_};
    uint64_t ticks_ = 0;
    bool metrics_failed_ = false;
    std::optional<Ticker> ticker_;  // looks at all of the above

    // The main thread alone.
    bool started_ = false;
    bool failed_ = false;
    bool max_wait_passed_ = false;
    bool print_reports_ = false;  // while a report is collected that the script asked for
    // Counted by the main thread and read by the ticker.
    std::atomic<uint64_t> lines_read_ = 0, lines_skipped_ = 0;
};

}  // namespace zelhost
