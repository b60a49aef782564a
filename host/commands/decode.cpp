// `zelhost decode`: what serialised messages hold.
#include <google/protobuf/arena.h>
#include <retrace.pb.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <limits>
#include <memory>

#include "host/commands/commands.h"
#include "host/commands/decode_sizes.h"
#include "host/commands/decode_text.h"
#include "host/lib/bytes_text.h"
#include "host/lib/console.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"
#include "host/lib/message_json.h"
#include "host/lib/message_reader.h"

namespace zelhost {
namespace {

// The history of a capture stands in a file beside it.
constexpr std::string_view kSideEnding = ".size";
// No message is larger: the library counts bytes in an int. In bytes.
constexpr size_t kLargestMessage = std::numeric_limits<int>::max();

// All inputs of one command. Files and texts may be given together.
struct DecodeOptions {
    std::vector<std::string> files;                          // "-" is standard input
    std::vector<std::pair<const char*, std::string>> texts;  // an option's name and the bytes that it gives
    bool pretty = false;
    bool all = false;
    bool sizes = false;
    ColorMode color = ColorMode::automatic;
};

std::string file_name(const std::string& path) { return path == "-" ? "standard input" : path; }

// One command. What is wrong with one input is said, and the others are shown all the same.
// The main thread alone runs it.
class Decode {
public:
    explicit Decode(const DecodeOptions& options) : options_(options) {}

    // The exit status is that of the worst input.
    ExitCode run() {
        if (options_.sizes)
            check_all_sizes();
        else
            show_all();
        return failed_ ? kFailed : kDone;
    }

private:
    // Output that stands before a failure is seen before it.
    // The failure is counted for the exit code, and the work goes on.
    template <class... T>
    void fail(fmt::format_string<T...> text, T&&... values) {
        failed_ = true;
        out_.flush();
        console::say(text, std::forward<T>(values)...);
    }

    void show_all() {
        // Texts of the command line come first, then the files.
        for (const auto& [option, bytes] : options_.texts) show(option, bytes);
        std::vector<std::string> files = options_.files;
        if (files.empty() && options_.texts.empty()) files.emplace_back("-");
        for (const std::string& file : files) {
            if (file == "-" && isatty(STDIN_FILENO) == 1)
                console::say("reading a message from the terminal; Ctrl-D ends");
            try {
                show(file_name(file), read_file(file, kLargestMessage));
            } catch (const Failure& e) {
                fail("{}", e.what());
            }
        }
        out_.flush();
    }

    // The library's arena frees the message at once. A large one has many small parts.
    void show(const std::string& name, std::string_view bytes) {
        google::protobuf::Arena arena;
        auto& message = *google::protobuf::Arena::CreateMessage<vorn_retrace::vorn_trace_info>(&arena);
        // A damaged message is shown as far as it could be read.
        const Reading reading = read_message(bytes, message);
        // An empty line stands between two messages.
        if (options_.pretty) {
            const std::string size = fmt::format("{} byte{}", bytes.size(), bytes.size() == 1 ? "" : "s");
            out_.write((shown_++ > 0 ? "\n" : "") + paint_(Tint::bold, name + ": " + size) + '\n');
            const std::string text = message_text(message, paint_, options_.all);
            out_.write(text.empty() ? "no field is set\n" : text);
        } else {
            out_.write(message_json(message));
            out_.write("\n");
        }
        // What is wrong is told after the message, so that the reader has seen it.
        if (reading.bad_text)
            fail("{}: wrong text at byte {}, in {}: {}{}", name, reading.bad_text->offset, reading.bad_text->path,
                 reading.bad_text->reason,
                 reading.bad_texts > 1 ? fmt::format(" ({} such texts)", reading.bad_texts) : "");
        if (reading.broken)
            fail("{}: breaks at byte {}{}: {}", name, reading.broken->offset,
                 reading.broken->path.empty() ? "" : ", in " + reading.broken->path, reading.broken->reason);
    }

    // The side files are among the files when a pattern names all of a folder. A side file stands for its capture.
    // A capture that is named twice is compared once.
    void check_all_sizes() {
        std::vector<std::string> checked;
        for (std::string file : options_.files) {
            if (file.ends_with(kSideEnding)) file.resize(file.size() - kSideEnding.size());
            if (std::ranges::find(checked, file) != checked.end()) continue;
            checked.push_back(file);
            check_size(file);
        }
        out_.flush();
    }

    // The size is asked of the file system. The content does not matter here.
    void check_size(const std::string& file) {
        std::error_code error;
        const uint64_t size = std::filesystem::file_size(file, error);
        if (error) return fail("{} has no size: {}", file, error.message());
        const std::string side = file + std::string(kSideEnding);
        try {
            const SizeCheck check = compare_sizes(size, parse_sizes(read_file(side, kLargestMessage)));
            failed_ = failed_ || !check.agrees;
            out_.write(fmt::format("{}: {}\n", file, paint_(check.agrees ? Tint::good : Tint::error, check.verdict)));
        } catch (const Failure& e) {
            fail("{}: {} bytes, but nothing to compare with: {}: {}", file, size, side, e.what());
        }
    }

    // A copy of the options.
    const DecodeOptions options_;
    const Paint paint_{options_.color, STDOUT_FILENO};
    OutputFile out_{"-"};
    // How many messages were shown.
    uint64_t shown_ = 0;
    // True when any input was damaged or could not be read.
    bool failed_ = false;
};

// --- the command line ---

constexpr const char* kFooter =
    R"(Output: one line of JSON for each message, in the form of "message" in the
output of zelhost run: names as in the schema, enum values by name, 64-bit
numbers as strings. Behind the known fields of an object may stand
  "latin1":["process_path"]   fields whose text is no UTF-8, which a receiver
                              refuses: each byte is written as one character
  "unknown":[{"number":99,"type":"varint","value":"7"}]
                              what the schema does not know; bytes are a text
An empty input is a message without any field. Of a damaged message all that
could be read is shown, also the beginning of a text that is cut off. One line
on standard error names the byte, from 0, and the field at which it breaks.
A message is damaged, too, when a text is no UTF-8.)";

// The text's bytes join the inputs.
// The bytes are made while the command line is parsed. So a text that is no such encoding is a
// wrong command line.
void add_text_option(CLI::App& app, DecodeOptions& options, const char* name, std::string (*bytes)(std::string_view),
                     const char* help) {
    app.add_option_function<std::vector<std::string>>(
           name,
           [&options, name, bytes](const std::vector<std::string>& texts) {
               for (const std::string& text : texts) try {
                       options.texts.emplace_back(name, bytes(text));
                   } catch (const Failure& e) {
                       throw CLI::ValidationError(name, e.what());
                   }
           },
           help)
        ->type_name("TEXT")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace

// The options live as long as the action; the parser writes into them before.
Action prepare_decode(CLI::App& app) {
    const auto options = std::make_shared<DecodeOptions>();
    app.footer(kFooter);
    CLI::Option* const files =
        app.add_option("FILE", options->files, "Serialised messages, one a file; - or none for standard input")
            ->type_name("");
    add_text_option(app, *options, "--hex", bytes_from_hex,
                    "A message as pairs of hexadecimal digits; may be repeated");
    add_text_option(app, *options, "--base64", bytes_from_base64, "A message in base64; may be repeated");
    CLI::Option* const pretty =
        app.add_flag("--pretty", options->pretty, "Text for people: dates beside times, long lists and texts folded");
    app.add_flag("--all", options->all, "With --pretty: fold nothing")->needs(pretty);
    app.add_flag("--sizes", options->sizes, "Compare the files' sizes with the last line of FILE.size instead")
        ->needs(files)
        ->excludes("--hex", "--base64", pretty);
    add_color_option(app, options->color);
    return [options] { return Decode(*options).run(); };
}

}  // namespace zelhost
