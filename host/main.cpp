// zelhost: loads the plug-in from an agent folder as the agent would, feeds it, and shows what it publishes.
#include <CLI/CLI.hpp>
#include <csignal>

#include "console.h"
#include "failure.h"
#include "run.h"

namespace {

constexpr const char* kFooter =
    R"(Input: JSON Lines, one event or action a line; blank lines and lines that begin with # are left out.
  {"event":ID,FORM}   an event with one form of payload: "alert" or "json" (the value's very bytes), "text", "hex",
                      "message" (a vorn_trace_info in JSON form) or "data":null. Event 1281 takes "dns":{...} instead.
  {"alert_type":...}  an alert document by itself is event 1536
  {"do":"sleep","ms":100}  {"do":"wait"}  {"do":"reset_begin"}  {"do":"reset_end"}  {"do":"report"}
  {"do":"config","delay_time":"120000","queue_size":"200"}  {"do":"config","text":"..."}
  {"do":"file_trace","path":"/tmp/x","file_key":"k","kind":1,"context":7}  {"do":"process_trace","data":{...},"context":8}
The plug-in sheds what comes faster than it works; "wait" lets it finish what it has.
Output: JSON Lines, one for each event, callback and wanted report. A summary goes to standard error.

Exit codes: 0 done, 1 failed, 2 wrong usage, 3 lines of the input were skipped, 4 --max-wait passed.)";

// An option that is short for one setting.
void add_shorthand(CLI::App& app, std::vector<zel::Setting>& settings, const char* option, const zel::Setting& setting,
                   const char* help) {
    app.add_option_function<uint32_t>(
           option,
           [&settings, setting](const uint32_t& value) {
               settings.push_back({setting.file, setting.section, setting.key, std::to_string(value)});
           },
           help)
        ->type_name("N");
}

void add_run_options(CLI::App& app, zel::RunOptions& options) {
    app.add_option("--root", options.root, "Agent folder; the one that zelhost stands in if not given")
        ->type_name("DIR");
    app.add_option("--input", options.input, "Script to play, - for standard input (default)")->type_name("FILE");
    app.add_option("--output", options.output, "Where the JSON lines go, - for standard output (default)")
        ->type_name("FILE");
    app.add_option("--log", options.log, "The plug-in's log; standard error if not given")->type_name("FILE");
    app.add_option("--log-level", options.log_level, "Default: debug with --log, else warn")
        ->type_name("LEVEL")
        ->check(CLI::IsMember({"error", "warn", "info", "debug"}));
    app.add_option_function<uint32_t>(
           "--idle-ms", [&options](const uint32_t& ms) { options.idle = std::chrono::milliseconds{ms}; },
           "Quiet time after which the pipeline counts as idle (300)")
        ->type_name("N");
    app.add_option_function<uint32_t>(
           "--max-wait", [&options](const uint32_t& s) { options.max_wait = std::chrono::seconds{s}; },
           "Longest wait for open traces, in seconds (180)")
        ->type_name("S");
    app.add_option_function<std::vector<std::string>>(
           "--set",
           [&options](const std::vector<std::string>& texts) {
               for (const std::string& text : texts) try {
                       options.settings.push_back(zel::parse_setting(text));
                   } catch (const zel::Failure& e) {
                       throw CLI::ValidationError("--set", e.what());
                   }
           },
           "One value of an ini file, in a temporary copy of the agent folder; FILE is zelreshdl, zeltrc or "
           "zel_pure_mode. May be repeated")
        ->type_name("FILE:SECTION:KEY=VALUE");
    add_shorthand(app, options.settings, "--not-ready", {"zeltrc", "standin", "not_ready_times", ""},
                  "How often the trace module puts an alert off: zeltrc:standin:not_ready_times");
    add_shorthand(app, options.settings, "--trace-cost", {"zeltrc", "standin", "cost_ms", ""},
                  "How long a trace takes, in ms: zeltrc:standin:cost_ms");
    add_shorthand(app, options.settings, "--queue-max", {"zelreshdl", "config", "queue_max", ""},
                  "Limit of each queue, 50 to 500: zelreshdl:config:queue_max");
    add_shorthand(app, options.settings, "--trc-times", {"zelreshdl", "config", "trc_times", ""},
                  "Most tries of a trace, 0 to 16, 0 for no traces: zelreshdl:config:trc_times");
}

}  // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);  // a closed output is a failed write
    zel::RunOptions options;
    CLI::App app("Host for the zelreshdl plug-in: plays events to it and shows what it publishes.", "zelhost");
    app.require_subcommand(1);
    app.footer(
        "Exit codes: 0 done, 1 failed, 2 wrong usage, 3 lines of the input were skipped, 4 --max-wait passed.\n"
        "zelhost run --help tells about the input.");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return fmt::format("zelhost: {}; zelhost run --help lists the options\n", error.what());
    });
    CLI::App& run = *app.add_subcommand("run", "Play a script of events to the plug-in of an agent folder");
    run.footer(kFooter);
    add_run_options(run, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? zel::kDone : zel::kUsage;
    }
    try {
        return zel::run(options);
    } catch (const std::exception& e) {
        zel::console::say("{}", e.what());
        return zel::kFailed;
    }
}
