#include "host/commands/graph.h"

#include <retrace.pb.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>

#include "host/commands/commands.h"
#include "host/commands/graph_drawing.h"
#include "host/commands/graph_html.h"
#include "host/lib/chain.h"
#include "host/lib/chain_fold.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"

namespace zelhost {
namespace {

// What the command line asks for.
// Filled by the parser.
struct GraphOptions {
    std::string input = "-";
    std::string output = "-";  // DOT on standard output
    std::string guid;
};

// One row for each ending; the help text and the failure name them, too.
// The ending of the output chooses the format.
struct Ending {
    std::string_view text;
    Picture picture;
};
constexpr Ending kEndings[] = {
    {".dot", Picture::dot}, {".gv", Picture::dot},    {".svg", Picture::svg},
    {".png", Picture::png}, {".html", Picture::html}, {".htm", Picture::html},
};

// Standard output has no ending and takes the one format that is text for people and programs.
// Nothing for an ending that is not in the table.
std::optional<Picture> picture_for(const std::string& path) {
    if (path == "-") return Picture::dot;
    for (const Ending& ending : kEndings)
        if (path.ends_with(ending.text)) return ending.picture;
    return {};
}

// The trace is read and the picture made before the output is opened, so that a failure leaves an old picture as it is.
// Returns the exit status. Failures are thrown.
ExitCode draw(const GraphOptions& options) {
    const std::string source = options.input == "-" ? "standard input" : options.input;
    vorn_retrace::vorn_trace_info message;
    const size_t skipped = find_trace(read_file(options.input), options.guid, source, message);
    const Chain chain = fold_chain(chain_of(message));
    if (chain.vertices.empty())
        throw Failure("{}: the trace of alert \"{}\" has no vertex and no edge; --guid takes another", source,
                      message.threat().alert_guid());
    const Picture picture = *picture_for(options.output);  // the parser has asked
    const std::string file = picture == Picture::html ? chain_page(chain) : draw_chain(chain, picture);
    OutputFile output(options.output);
    output.write(file);
    output.flush();
    return skipped > 0 ? kLinesSkipped : kDone;
}

constexpr const char* kFooter =
    R"(Processes are boxes, every other kind of object has its own shape; the legend lists those that are there. An edge says what
was done, and its number is its place in the order of time. Red is what the alert's rules name; a thick frame holds a text that a
rule highlights. Above 300 vertices, leaves of one parent and kind become one, as "312 files".
The page needs nothing but a browser: wheel, + and - zoom, dragging moves, / searches, arrow keys go from vertex to vertex,
Enter shows details.)";

}  // namespace

// The options live as long as the action; the parser writes into them before.
Action prepare_graph(CLI::App& app) {
    const auto options = std::make_shared<GraphOptions>();
    app.footer(kFooter);
    app.add_option("FILE", options->input,
                   "Lines as zelhost run writes them, or a serialised message; - for standard input (default)")
        ->type_name("");
    app.add_option("-o,--output", options->output,
                   "Picture to write; its ending says which: .dot .gv .svg .png .html .htm. DOT on standard output if "
                   "not given")
        ->type_name("FILE")
        // A wrong ending is a wrong command line, said before anything is read.
        ->check([](const std::string& path) {
            return picture_for(path) ? std::string() : path + " does not end in .dot .gv .svg .png .html or .htm";
        });
    app.add_option("--guid", options->guid, "The trace of this alert; the first one that has a chain if not given")
        ->type_name("GUID");
    return [options] { return draw(*options); };
}

}  // namespace zelhost
