// The command line of `zelhost run`.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <span>

#include "host/commands/agent_options.h"
#include "host/commands/commands.h"
#include "host/commands/run.h"
#include "host/commands/server_options.h"
#include "host/lib/severity.h"

namespace zelhost {
namespace {

constexpr const char* kFooter =
    R"(Input: JSON Lines, one event or action a line; blank lines and lines that begin with # are left out.
  {"event":ID,FORM}   an event with one form of payload: "alert" or "json" (the value's bytes as they stand), "text", "hex",
                      "message" (a vorn_trace_info in JSON form) or "data":null. Event 1281 takes "dns":{...} instead.
  {"alert_type":...}  an alert document by itself is event 1536
  {"do":"sleep","ms":100}  {"do":"wait"}  {"do":"reset_begin"}  {"do":"reset_end"}  {"do":"report"}
  {"do":"config","delay_time":"120000","queue_size":"200"}  {"do":"config","text":"..."}
  {"do":"file_trace","path":"/tmp/x","file_key":"k","kind":1,"context":7}  {"do":"process_trace","data":{...},"context":8}
The plug-in sheds what comes faster than it works; "wait" lets it finish what it has.
Output: JSON Lines, one for each event, callback and report that was asked for. A summary goes to standard error.
With --follow a file that was cut is read again from its start. When its name
stands for another file, the old one is read to its end and the new one from its
start. A named pipe waits for its next writer. A signal or --limit ends the run.
With --pretty a line has time, kind, severity, rule (and how many more), process,
what became of it, and the start of the GUID. Events that were lost on the alarm
worker and traces without a chain have lines, too; --limit does not count those.
An output that nobody reads any more ends the run without a message.)";

// An option with one of several words. `words` begins with that of the value `first`.
// The value is the place of the word in the list, counted from `first`.
template <class Value>
void add_choice(CLI::App& app, const char* option, const char* type, const char* help,
                const std::vector<std::string>& words, int first, Value& value) {
    app.add_option_function<std::string>(
           option,
           [words, first, &value](const std::string& word) {
               value = static_cast<Value>(std::ranges::find(words, word) - words.begin() + first);
           },
           help)
        ->type_name(type)
        ->check(CLI::IsMember(words));
}

// The first row is no severity.
// An option names severities as the lines show them.
std::vector<std::string> severities() {
    std::vector<std::string> names;
    for (const Severity& severity : std::span(kSeverities).subspan(1)) names.emplace_back(severity.name);
    return names;
}

// What is shown, and how.
// All of these concern lines that are shown, or files beside them.
void add_output_options(CLI::App& app, RunOptions& options) {
    app.add_flag("--follow", options.follow, "Wait for more at the end of the input");
    app.add_option("--events", options.filter.events, "Show these outgoing events alone")
        ->delimiter(',')
        ->type_name("ID,...")
        ->check(CLI::IsMember(std::vector<EVENT_ID>(std::begin(kOutgoing), std::end(kOutgoing))));
    add_choice(app, "--level", "LEVEL", "Show alerts of this severity and above alone", severities(), 1,
               options.filter.lowest_level);
    app.add_option("--limit", options.limit, "End after N shown lines")->type_name("N")->check(CLI::PositiveNumber);
    app.add_flag("--pretty", options.pretty,
                 "Lines for people instead of JSON, and on a terminal a line that tells how it goes");
    add_color_option(app, options.color);
    app.add_option("--metrics", options.metrics,
                   "Replace this file with Prometheus metrics every second and at the end")
        ->type_name("FILE");
    app.add_option("--record", options.record, "Keep the session in this file, for zelhost replay and zelhost explain")
        ->type_name("FILE");
    add_choice(app, "--summary", "FORM", "Form of the summary at the end (text)", {"text", "json", "none"}, 0,
               options.summary);
}

// Where what comes out is published.
// The address is checked for its form while the command line is parsed. Nothing is connected yet.
// Options of the sink need its address.
void add_sink_options(CLI::App& app, SinkOptions& sink) {
    CLI::Option* const address = app.add_option("--sink", sink.address,
                                                "Publish each outgoing event to a message server; several HOST:PORT "
                                                "with commas between are the servers of one cluster")
                                     ->type_name("nats://HOST:PORT/SUBJECT")
                                     ->check(check_address);
    add_server_options(app, "--sink-", sink.access);
    app.add_option("--sink-buffer", sink.buffer,
                   "Folder that keeps messages while the server is away; sink/AGENT in the agent folder if not given")
        ->type_name("DIR");
    app.add_option("--sink-buffer-mb", sink.buffer_mb,
                   "Most room for the buffer in MiB, 1 to 1000000; the oldest messages go first (256)")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000));
    app.add_option("--sink-buffer-hours", sink.buffer_hours,
                   "Longest time of a message in the buffer in hours, 1 to 100000 (168)")
        ->type_name("N")
        ->check(CLI::Range(1, 100'000));
    for (CLI::Option* const option : app.get_options())
        if (option->get_name().starts_with("--sink-")) option->needs(address);
}

// Each help text names its default, because the parser does not know what an empty value stands for.
// The order is that of the help text.
void add_options(CLI::App& app, RunOptions& options) {
    add_root_option(app, options.root);
    app.add_option("--input", options.input, "Script to play, - for standard input (default)")->type_name("FILE");
    app.add_option("--output", options.output, "Where the JSON lines go, - for standard output (default)")
        ->type_name("FILE");
    app.add_option("--log", options.log, "The plug-in's log; standard error if not given")->type_name("FILE");
    app.add_option("--log-level", options.log_level,
                   "Log lines that are written, each level with those before it (debug with --log, else warn)")
        ->type_name("LEVEL")
        ->check(CLI::IsMember(std::vector<std::string>(std::begin(kLogLevels), std::end(kLogLevels))));
    app.add_option_function<uint32_t>(
           "--idle-ms", [&options](const uint32_t& ms) { options.idle = std::chrono::milliseconds{ms}; },
           "How long nothing happens before the pipeline counts as idle, in milliseconds (300)")
        ->type_name("N");
    app.add_option_function<uint32_t>(
           "--max-wait", [&options](const uint32_t& s) { options.max_wait = std::chrono::seconds{s}; },
           "Longest wait for open traces, in seconds (180)")
        ->type_name("S");
    add_output_options(app, options);
    add_sink_options(app, options.sink);
    add_settings(app, options.settings);
}

}  // namespace

// The options live as long as the action; the parser writes into them before.
Action prepare_run(CLI::App& app) {
    const auto options = std::make_shared<RunOptions>();
    app.footer(kFooter);
    add_options(app, *options);
    return [options] { return Run(*options).run(); };
}

}  // namespace zelhost
