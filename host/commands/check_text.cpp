// The report of a check for people, in the form in which compilers speak.
#include <fmt/format.h>
#include <unistd.h>

#include "host/commands/check.h"
#include "host/lib/console.h"
#include "host/lib/snippet.h"
#include "host/lib/visible.h"
#include "platform/zel_support.h"

namespace zelhost {
namespace {

// Log lines that are shown of a refusal: the first say what is wrong, the others only where the agent gave up. A level
// that is more talkative than the usual one is asked for to see all.
// Counted in lines of the log.
constexpr size_t kLogLines = 2;

// Writes one line or block for each document that has something to tell.
class TextReport : public CheckReport {
public:
    TextReport(OutputFile& out, const CheckOptions& options) : CheckReport(out), options_(options) {}

    // An accepted document without a warning has no line.
    void document(const CheckedDocument& checked) override {
        // A refusal is followed by the log lines that the agent would write.
        if (checked.refused()) {
            const bool by_warning = checked.result.refusal == nullptr;
            finding(checked, *checked.refusal, Tint::error, by_warning ? "refused by --strict" : "refused");
            log(checked.result);
        } else if (checked.result.verdict == ZELCHECK_SKIPPED) {
            note(checked, "skipped: all rules have the status \"Trigger\", so there is nothing to report");
        } else if (checked.result.verdict == ZELCHECK_REPEAT) {
            note(checked, "repeat: an earlier document has the same rules and images");
        }
        if (options_.quiet) return;
        // The first warning was told as the reason for the refusal.
        const size_t said = checked.refused() && checked.result.refusal == nullptr ? 1 : 0;
        for (size_t i = said; i < checked.warnings.size(); ++i)
            finding(checked, checked.warnings[i], Tint::warning, "warning");
    }

    // The counts that are 0 are left out.
    void end(const CheckTotals& totals) override {
        if (options_.quiet) return;
        // The verdicts are listed behind the number of documents.
        std::string text = counted(totals.documents, "document");
        const char* before = ": ";
        const auto add = [&](uint64_t count, const std::string& words) {
            if (count > 0) text += before + words;
            if (count > 0) before = ", ";
        };
        add(totals.accepted, fmt::format("{} accepted", totals.accepted));
        add(totals.repeats, counted(totals.repeats, "repeat"));
        add(totals.skipped, fmt::format("{} skipped", totals.skipped));
        add(totals.refused, fmt::format("{} refused", totals.refused));
        if (totals.fatal > 0) text += fmt::format(" ({} would end the agent's process)", totals.fatal);
        add(totals.warnings, counted(totals.warnings, "warning"));
        out_.write(text + "\n");
    }

private:
    // The word gets an "s" unless there is exactly one.
    static std::string counted(uint64_t count, const char* word) {
        return fmt::format("{} {}{}", count, word, count == 1 ? "" : "s");
    }

    // The form FILE:LINE:COLUMN is what editors can jump to.
    void heading(const CheckedDocument& checked, const FilePlace& place, std::string_view rest) {
        console::progress("");
        const std::string where = fmt::format("{}:{}:{}:", visible(checked.source), place.line, place.column());
        out_.write(paint_(Tint::bold, where) + " " + std::string(rest) + "\n");
    }

    // What concerns a whole document is said at its beginning.
    void note(const CheckedDocument& checked, std::string_view text) {
        heading(checked, checked.document.place(0), text);
    }

    // The reason, the place by its keys, and the line of the file with a mark below the place.
    void finding(const CheckedDocument& checked, const CheckFinding& found, Tint tint, const std::string& word) {
        heading(checked, found.place, paint_(tint, word + ":") + " " + visible(found.reason));
        if (!found.path.empty()) out_.write("  " + paint_(Tint::place, visible(found.path)) + "\n");
        // The line may be very long, so only a part around the place is shown.
        const Snippet cut = cut_around(found.place.text, found.place.at, found.width);
        // The blanks before the mark are not coloured.
        const size_t indent = cut.marks.find('^');
        out_.write("  " + cut.text + "\n  " + cut.marks.substr(0, indent) +
                   paint_(Tint::good, std::string_view(cut.marks).substr(indent)) + "\n");
    }

    // The level stands before the first line of it.
    void log(const zelcheck_result& result) {
        if (result.line_count == 0) return;
        // All lines stand one behind the other, with a slash between them.
        std::string text;
        int32_t level = -1;
        // Whoever asks for a more talkative level wants to see all lines.
        const size_t shown = options_.log_level > ZEL_LOG_WARN ? result.line_count : kLogLines;
        for (size_t i = 0; i < std::min(result.line_count, shown); ++i) {
            const zelcheck_line& line = result.lines[i];
            std::string_view words = line.text;
            if (words.ends_with('\n')) words.remove_suffix(1);
            text += i == 0 ? "" : " / ";
            if (line.level != level) text += std::string(level_word(line.level)) + " ";
            level = line.level;
            text += visible(words);
        }
        if (shown < result.line_count) text += " / ...";
        out_.write(paint_(Tint::faint, "  the agent logs: " + text) + "\n");
    }

    // Borrowed from the command, which owns the report as well.
    const CheckOptions& options_;
    const Paint paint_{options_.color, STDOUT_FILENO};
};

}  // namespace

std::unique_ptr<CheckReport> text_report(OutputFile& out, const CheckOptions& options) {
    return std::make_unique<TextReport>(out, options);
}

}  // namespace zelhost
