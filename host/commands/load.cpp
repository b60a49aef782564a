// The command line of `zelhost load`.
#include "host/commands/load.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <memory>

#include "host/commands/agent_options.h"
#include "host/commands/commands.h"
#include "host/commands/load_run.h"
#include "host/lib/failure.h"

namespace zelhost {
namespace {

constexpr const char* kFooter =
    R"(At a rate each event has its time, whether those before it were on time or not.
A thread that is late makes up for it. The latency of an alert counts from that
time to its first report, so that a wait before the bus counts, too. Without a
rate the bus's inbox is the brake, and the latency counts from the moment at which
the alert is offered to the bus. Only alert documents are measured, because the
plug-in gives other events GUIDs of its own.
A worker that has nothing to do sleeps for the setting "interval". What of a
latency is longer than that is "beyond the idle sleep".
Refused are events that meet a full queue. Shed are alerts that are filtered while
many traces wait, and traces that are dropped. A predicted backlog is the time
that the plug-in gives its waiting traces, a measured one is how long the last of
them really waited.
The same seed and options give the same events, in each thread in the same order.
The account is kept from the plug-in's log. Its lines are formatted for that, which
makes the alarm worker slower by half for large alerts. With --no-log only the
plug-in's own figures say what was refused, and queues, backlog and what is shed
are not known.
Kinds of events, with their usual shares:)";

// The kinds come from the table of the generator, so the help text has all of them.
std::string footer() {
    std::string text = kFooter;
    for (const Mixture::Kind& kind : Mixture::kinds())
        text += fmt::format("\n  {:<10} {:>2}  {}", kind.name, kind.share, kind.words);
    return text;
}

// A number within these limits, which are allowed themselves.
// The parser's own check would tell its limits in another form than the other messages.
CLI::Validator from_to(double lowest, double highest) {
    const auto check = [=](const std::string& text) -> std::string {
        double number = 0;
        const char* const end = text.data() + text.size();
        const auto read = std::from_chars(text.data(), end, number);
        if (read.ec == std::errc() && read.ptr == end && number >= lowest && number <= highest) return {};
        return fmt::format("\"{}\" is not a number from {} to {}", text, lowest, highest);
    };
    return CLI::Validator(check, "");
}

// What is published: how fast, for how long, and of which kinds.
void add_events(CLI::App& app, LoadOptions& options) {
    app.add_option("--rate", options.rate, "Events a second, of all threads together; as fast as possible if not given")
        ->type_name("N")
        ->check(from_to(0.001, 1e6));
    app.add_option_function<double>(
           "--seconds",
           [&options](const double& seconds) {
               options.seconds = std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
           },
           "How long events are published (10), or with --find-capacity how long at each rate (3)")
        ->type_name("S")
        ->check(from_to(0.1, 1e6));
    app.add_option("--threads", options.threads, "Threads that publish (2)")->type_name("N")->check(from_to(1, 64));
    app.add_option("--seed", options.events.seed, "Number that the events are made from (1)")->type_name("N");
    app.add_option_function<std::string>(
           "--mix",
           [&options](const std::string& text) {
               try {
                   options.events.mix = parse_mix(text);
                   options.mix = text;
               } catch (const Failure& e) {
                   throw CLI::ValidationError("--mix", e.what());
               }
           },
           "Shares of the kinds of events that are listed below; a kind that is not named gets none")
        ->type_name("KIND=SHARE,...");
    app.add_option("--events", options.events.per_rule,
                   "Events in each rule of an alert; as its kind says if not given")
        ->type_name("N")
        ->check(from_to(1, 10000));
}

}  // namespace

Action prepare_load(CLI::App& app) {
    const auto options = std::make_shared<LoadOptions>();
    app.footer(footer());
    add_root_option(app, options->root);
    add_events(app, *options);
    app.add_option_function<uint32_t>(
           "--max-wait", [options = options.get()](const uint32_t& s) { options->max_wait = std::chrono::seconds{s}; },
           "Longest wait for the end of all events and traces, in seconds (180)")
        ->type_name("S");
    app.add_flag("--json", options->json, "One JSON object on one line, for programs");
    app.add_flag(
        "--no-log", options->no_log,
        "Do not read the plug-in's log: the plug-in is then as fast as in an agent, but the account has few checks");
    app.add_option("--plot", options->plot,
                   "Picture of rates, latencies and queues over time, drawn by gnuplot; its name ends with .svg")
        ->type_name("FILE")
        ->check([](const std::string& name) { return name.ends_with(".svg") ? "" : "the name must end with .svg"; });
    app.add_flag(
        "--find-capacity", options->find_capacity,
        "Search the highest rate at which nothing is refused and what waits does not grow; --rate is the first");
    add_settings(app, options->settings);
    return [options] { return LoadRun(*options).run(); };
}

}  // namespace zelhost
