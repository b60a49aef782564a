// `zelhost watch`: what the sinks of many agents have published, one view of each alert.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "host/commands/commands.h"
#include "host/commands/server_options.h"
#include "host/lib/alert_views.h"
#include "host/lib/console.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"
#include "host/lib/output.h"
#include "host/lib/stop_signal.h"
#include "host/lib/stream_reader.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;

constexpr auto kLook = 200ms;  // how late a signal may be noticed
// The wait after a break doubles from the first to the longest.
constexpr auto kFirstWait = 500ms;
constexpr auto kLongestWait = 10s;
// In bytes: what the views that are remembered may take.
constexpr uint64_t kRoom = 256 << 20;
// A description of a stream is small. In bytes.
constexpr size_t kMostOfStream = size_t{64} * 1024;

// What the command line asks for.
// Filled by the parser, and only read afterwards.
struct WatchOptions {
    std::string address;
    NatsAccess access;
    std::string stream;  // file of a stream to make
    bool once = false;
    uint64_t limit = 0;
};

// One watching. The main thread alone.
// Owns the connection, the views and the output.
class Watch {
public:
    explicit Watch(const WatchOptions& options)
        : options_(options),
          address_(parse_nats_address(options.address)),
          server_(address_, options.access, "zelhost watch"),
          output_("-", options.limit, [this] { stop_.request(); }) {}

    // Views that are left are shown at the end, unless each change was shown already.
    ExitCode run() {
        if (!options_.stream.empty()) create_stream(server_, read_file(options_.stream, kMostOfStream));
        options_.once ? read_to_the_end() : follow();
        while (const auto view = views_.forget(true))
            if (options_.once) output_.show(view_line(*view));
        say_counts();
        if (output_.state() == Output::State::failed) throw Failure("{}", output_.error());
        return kDone;
    }

private:
    // A view is shown when all messages are in, or when it must be forgotten before.
    // The views of all alerts are joined first, so that each alert has one line.
    void read_to_the_end() {
        // A stream is read from its first message on.
        StreamReader reader(server_, address_.subject, 1);
        // What comes in meanwhile is told by each message.
        uint64_t left = reader.pending();
        while (left > 0 && !stop_.requested()) {
            const auto message = reader.next(kLook);
            if (!message) continue;
            left = message->behind;
            views_.add(*message);
            // What must be forgotten is shown now, although more of it may come.
            while (const auto view = views_.forget(false)) output_.show(view_line(*view));
        }
    }

    // After a break the reading goes on behind the last message.
    // Ends by a signal or by the limit of lines.
    void follow() {
        std::chrono::milliseconds wait = kFirstWait;
        while (!stop_.requested()) try {
                // A new connection for each try.
                StreamReader reader(server_, address_.subject, sequence_ + 1);
                wait = kFirstWait;
                while (!stop_.requested()) show(reader.next(kLook));
            } catch (const Failure& e) {
                // A first connection that fails is most likely a wrong address.
                if (sequence_ == 0 && wait == kFirstWait) throw;
                console::say("{}; trying again", e.what());
                stop_.sleep(wait);
                wait = std::min<std::chrono::milliseconds>(wait * 2, kLongestWait);
            }
    }

    // Every message may change one view, and the changed view is shown.
    void show(const std::optional<StreamMessage>& message) {
        // A reader that has gone is found even when no message comes.
        output_.look();
        if (!message) return;
        sequence_ = message->sequence;
        if (const AlertView* view = views_.add(*message)) output_.show(view_line(*view));
        // What is forgotten was shown with its last change.
        while (views_.forget(false)) continue;
    }

    // Also after a signal.
    void say_counts() const {
        const AlertViews::Counts counts = views_.counts();
        console::say(
            "{} messages of {} agents, {} of them twice; {} alerts with report and chain, {} with a report alone, {} "
            "chains alone; {} other messages",
            counts.messages, counts.agents.size(), counts.twice, counts.joined, counts.reports, counts.chains,
            counts.others);
    }

    // Borrowed from the action, which outlives this object.
    const WatchOptions& options_;
    StopSignal stop_;
    // Where the sinks publish, and how to reach the server. The connection is made anew after each
    // break.
    const NatsAddress address_;
    const NatsOptions server_;
    Output output_;
    AlertViews views_{kRoom};
    uint64_t sequence_ = 0;  // of the last message
};

constexpr const char* kFooter =
    R"(Output: JSON Lines. A line holds all that is known of one alert so far: "agent", "guid", "source", the "ids" of its messages,
its "report" (the message of event 769, null before it has come) and its "chains" (those of events 770). Each message that adds
something gives a line, and the last line of an alert is the whole. With --once there is one line for each alert.
A message that comes twice changes nothing. Up to 256 MiB of alerts are remembered, those that changed last.
--create-stream takes the configuration of a stream as the server's own interface has it; scenarios/fleet_stream.json is one.)";

}  // namespace

// The options live as long as the action; the parser writes into them before.
Action prepare_watch(CLI::App& app) {
    const auto options = std::make_shared<WatchOptions>();
    app.footer(kFooter);
    app.add_option("ADDRESS", options->address, "Where run --sink publishes: nats://HOST:PORT/SUBJECT")
        ->required()
        ->check(check_address)
        ->type_name("");
    app.add_flag("--once", options->once, "End after what the stream holds now, with one line for each alert");
    app.add_option("--limit", options->limit, "End after N lines")->type_name("N")->check(CLI::PositiveNumber);
    add_server_options(app, "--", options->access);
    app.add_option("--create-stream", options->stream, "Make the stream that this file describes, if it is not there")
        ->type_name("FILE");
    return [options] { return Watch(*options).run(); };
}

}  // namespace zelhost
