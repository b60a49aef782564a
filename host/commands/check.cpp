// `zelhost check`: will these alert documents come through, and if not, where exactly are they wrong? The verdict is
// that of the plug-in's own code in libzelcheck.so.
#include "host/commands/check.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>

#include "host/commands/commands.h"
#include "host/lib/checker.h"
#include "host/lib/console.h"
#include "host/lib/failure.h"
#include "platform/zel_support.h"

namespace zelhost {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A check that is over at once shows no progress; the clock is looked at after so many documents.
// These are the delay before the first progress line, the time between two of them, and how many
// documents are checked between two looks at the clock.
constexpr auto kProgressAfter = 500ms;
constexpr auto kProgressStep = 200ms;
constexpr uint64_t kDocumentsPerLook = 256;

// The finding has its place in the document. People need the place in the file.
CheckFinding located(const Document& document, const zelcheck_finding& finding) {
    return {finding.reason, finding.path, finding.offset, document.place(finding.offset),
            document.width(finding.offset, finding.size)};
}

// A bar that tells how much of a file has been read.
std::string progress_text(std::string_view source, int percent, uint64_t documents) {
    if (percent < 0) return fmt::format("{}: {} documents", source, documents);
    // The bar has this many places.
    constexpr int kWidth = 25;
    const auto filled = static_cast<size_t>(std::min(percent, 100) * kWidth / 100);
    return fmt::format("{} [{:<{}}] {} %, {} documents", source, std::string(filled, '#'), kWidth, percent, documents);
}

// One check of all files.
// Owns everything that the check needs. The main thread alone runs it.
class Check {
public:
    explicit Check(const CheckOptions& options) : options_(options) {
        switch (options_.form) {
            case CheckForm::text: report_ = text_report(out_, options_); break;
            case CheckForm::json: report_ = json_report(out_, options_); break;
            case CheckForm::sarif: report_ = sarif_report(out_, options_); break;
        }
    }

    // What could not be read counts for more than what does not come through: the answer is not whole then.
    // Does not throw for a file that cannot be read. It throws when the output cannot be written.
    ExitCode run() {
        report_->begin();
        // A file that cannot be read does not keep the others from being checked.
        for (const std::string& file : options_.files) {
            if (stop_.requested()) break;
            try {
                check_file(file);
            } catch (const Failure& e) {
                console::message(e.what());
                unreadable_ = true;
            }
        }
        // The progress line goes away before the last words.
        console::progress("");
        report_->end(totals_);
        out_.flush();
        if (stop_.requested()) console::say("stopped by a signal; {} documents were checked", totals_.documents);
        if (unreadable_) return kUsage;
        return totals_.refused + totals_.skipped > 0 || stop_.requested() ? kFailed : kDone;
    }

private:
    // The checker lives over all files, so a document may repeat one of another file.
    void check_file(const std::string& file) {
        if (file == "-" && isatty(STDIN_FILENO) == 1)
            console::say("reading documents from the terminal, one a line; Ctrl-D ends");
        Documents documents(file, stop_);
        source_ = file == "-" ? "<stdin>" : file;
        Document document;
        // A file of comments alone is no mistake, but worth a message.
        bool any = false;
        while (documents.next(document)) {
            any = true;
            judge(document);
            // The clock is not asked for each document: there may be a million of them.
            if (totals_.documents % kDocumentsPerLook == 0) show_progress(documents.percent());
        }
        if (!any && !stop_.requested()) console::say("{} holds no alert document", source_);
    }

    void judge(const Document& document) {
        const zelcheck_result* result = nullptr;
        try {
            result = &checker_.check(document.event_id, document.text);
        } catch (const std::bad_alloc&) {
            throw Failure("{}: no memory for the document on line {}", source_, document.first_line);
        }
        const CheckedDocument checked(source_, document, *result, options_.strict);
        count(checked);
        // Quiet means that only refusals are written. All documents are counted all the same.
        if (options_.quiet && !checked.refused()) return;
        report_->document(checked);
    }

    // A refused document is counted as that and as nothing else.
    void count(const CheckedDocument& checked) {
        ++totals_.documents;
        totals_.warnings += checked.warnings.size();
        if (checked.refused())
            ++totals_.refused;
        else
            ++(checked.result.verdict == ZELCHECK_REPEAT    ? totals_.repeats
               : checked.result.verdict == ZELCHECK_SKIPPED ? totals_.skipped
                                                            : totals_.accepted);
        if (checked.fatal()) ++totals_.fatal;
    }

    // The time to the next look begins anew each time.
    void show_progress(int percent) {
        const auto now = Clock::now();
        if (now < next_look_) return;
        next_look_ = now + kProgressStep;
        console::progress(progress_text(source_, percent, totals_.documents));
    }

    // A copy, so that the object does not depend on the parser.
    const CheckOptions options_;
    // The signals that end the check. It is made before any other thread starts.
    StopSignal stop_;
    // Standard output. It is flushed once at the end.
    OutputFile out_{"-"};
    std::unique_ptr<CheckReport> report_;
    // Remembers all documents of the run, so that it knows a repeat.
    Checker checker_{options_.log_level};
    // The name of the file at hand, for people.
    std::string source_;
    CheckTotals totals_;
    // True when a file could not be read, which makes the answer incomplete.
    bool unreadable_ = false;
    Clock::time_point next_look_ = Clock::now() + kProgressAfter;
};

// --- the command line ---

constexpr const char* kFooter =
    R"(Input: alert documents. A file is one document when its first line opens an
object or a list that it does not close, and the next line can go on with it.
Otherwise each line is a document, or a line of a script for zelhost run, of
which "alert", "json" or "text" of the events 1536 and 1538 is taken. Other
lines of a script, blank lines and lines that begin with # are passed over.

Verdicts:
  accepted  the agent reports the alert
  repeat    accepted, and an earlier document has the same rules and images;
            the agent marks the second when both come within a minute
  skipped   all rules have the status "Trigger": there is nothing to report
  refused   the alert is lost, or the agent's process would end
Skipped and refused documents do not come through.

Warnings: text behind the document's end, a key that stands twice or that
nothing reads, a number or a text of which the agent reads another value, an
element that is lost from a list, a post-operation that is left out.

Columns and offsets count bytes: columns from 1 in the file's line, offsets
from 0 in the document.)";

// The parser turns the word into the value.
// `type` is the word that stands for the value in the help text.
template <class Value>
CLI::Option* add_choice(CLI::App& app, const char* name, Value& value,
                        const std::vector<std::pair<std::string, Value>>& choices, const char* type, const char* help) {
    return app.add_option(name, value, help)
        ->transform(CLI::CheckedTransformer(choices, CLI::ignore_case))
        ->type_name(type);
}

}  // namespace

CheckedDocument::CheckedDocument(std::string_view name, const Document& text, const zelcheck_result& outcome,
                                 bool strict)
    : source(name), document(text), result(outcome) {
    // Warnings stand in the order of the document.
    for (size_t i = 0; i < result.warning_count; ++i) warnings.push_back(located(document, result.warnings[i]));
    // Under --strict the first warning is the reason.
    if (result.refusal != nullptr)
        refusal = located(document, *result.refusal);
    else if (strict && !warnings.empty())
        refusal = warnings.front();
}

// The order of the questions matters: a document may be a repeat and still be refused by --strict.
const char* verdict_word(const CheckedDocument& checked) {
    if (checked.refused()) return "refused";
    switch (checked.result.verdict) {
        case ZELCHECK_REPEAT: return "repeat";
        case ZELCHECK_SKIPPED: return "skipped";
        default: return "accepted";
    }
}

const char* level_word(int32_t level) {
    switch (level) {
        case ZEL_LOG_ERROR: return "ERROR";
        case ZEL_LOG_WARN: return "WARN";
        case ZEL_LOG_INFO: return "INFO";
        default: return "DEBUG";
    }
}

// The options live as long as the action; the parser writes into them before.
Action prepare_check(CLI::App& app) {
    const auto options = std::make_shared<CheckOptions>();
    options->log_level = ZEL_LOG_WARN;
    app.footer(kFooter);
    app.add_option("FILE", options->files, "Alert documents; - or none for standard input");
    app.add_flag("--strict", options->strict, "Refuse a document that has a warning");
    app.add_flag("--quiet", options->quiet, "Print refusals only");
    add_choice<CheckForm>(app, "--format", options->form,
                          {{"text", CheckForm::text}, {"json", CheckForm::json}, {"sarif", CheckForm::sarif}}, "FORM",
                          "text (default), json (one line for each document) or sarif (for tools of code review)");
    add_choice<int32_t>(
        app, "--log-level", options->log_level,
        {{"error", ZEL_LOG_ERROR}, {"warn", ZEL_LOG_WARN}, {"info", ZEL_LOG_INFO}, {"debug", ZEL_LOG_DEBUG}}, "LEVEL",
        "Log lines that are shown: error, warn (default), info or debug, each with those before it");
    add_color_option(app, options->color);
    return [options] {
        if (options->files.empty()) options->files.emplace_back("-");
        return Check(*options).run();
    };
}

}  // namespace zelhost
