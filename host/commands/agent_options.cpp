#include "host/commands/agent_options.h"

#include <CLI/CLI.hpp>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

// An option that is short for one setting.
// The value that is given becomes a setting like one of --set.
struct Shorthand {
    const char* option;
    const char* help;
    Setting setting;  // without its value
};
// The values that are changed most often; their limits are the plug-in's, which takes its default outside of them.
// A value outside the limits is passed on as well, so that its effect can be tried.
const Shorthand kShorthands[] = {
    {"--not-ready",
     "How often the trace module puts an alert off: zeltrc:standin:not_ready_times",
     {"zeltrc", "standin", "not_ready_times", ""}},
    {"--trace-cost", "How long a trace takes, in ms: zeltrc:standin:cost_ms", {"zeltrc", "standin", "cost_ms", ""}},
    {"--queue-max",
     "Limit of each queue, 50 to 500: zelreshdl:config:queue_max",
     {"zelreshdl", "config", "queue_max", ""}},
    {"--trc-times",
     "Most attempts at a trace, 0 to 16; 0 turns tracing off: zelreshdl:config:trc_times",
     {"zelreshdl", "config", "trc_times", ""}},
};

}  // namespace

void add_root_option(CLI::App& app, std::string& root) {
    app.add_option("--root", root, "Agent folder; the one that zelhost stands in if not given")->type_name("DIR");
}

// Settings do not change the agent folder: the plug-in is loaded from a copy that has them.
void add_settings(CLI::App& app, std::vector<Setting>& settings) {
    app.add_option_function<std::vector<std::string>>(
           "--set",
           [&settings](const std::vector<std::string>& texts) {
               for (const std::string& text : texts) try {
                       settings.push_back(parse_setting(text));
                   } catch (const Failure& e) {
                       throw CLI::ValidationError("--set", e.what());
                   }
           },
           "One value of an ini file, in a temporary copy of the agent folder; FILE is zelreshdl, zeltrc or "
           "zel_pure_mode. May be repeated")
        ->type_name("FILE:SECTION:KEY=VALUE");
    // The value is parsed as a number, so a text is a wrong command line.
    for (const Shorthand& shorthand : kShorthands)
        app.add_option_function<uint32_t>(
               shorthand.option,
               [&settings, setting = shorthand.setting](const uint32_t& value) {
                   settings.push_back({setting.file, setting.section, setting.key, std::to_string(value)});
               },
               shorthand.help)
            ->type_name("N");
}

}  // namespace zelhost
