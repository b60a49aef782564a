// What the files of `zelhost check` share: a document with its verdict, and the forms of the report.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "check/zelcheck_host.h"
#include "host/lib/color.h"
#include "host/lib/documents.h"
#include "host/lib/files.h"

namespace zelhost {

// One form is for people and two are for programs.
enum class CheckForm { text, json, sarif };

// What the command line asks for.
struct CheckOptions {
    std::vector<std::string> files;  // none: standard input
    bool strict = false;
    bool quiet = false;
    CheckForm form = CheckForm::text;
    int32_t log_level;  // of the lines that are shown
    ColorMode color = ColorMode::automatic;
};

// What is said of one place of a document.
// Found in the document by its offset, and in the file by its place. The texts belong to the result
// of the checker.
struct CheckFinding {
    std::string_view reason;
    std::string_view path;
    uint64_t offset;  // in the document
    FilePlace place;
    // 0 when no bytes are meant, as at the end of a document.
    size_t width;  // bytes of the line that are meant
};

// A document and what becomes of it. Borrows all that it speaks of.
// Lives until the next document is read: the result of the checker and the views of the document
// end then.
struct CheckedDocument {
    // With `strict` a warning refuses the document.
    CheckedDocument(std::string_view source, const Document& document, const zelcheck_result& result, bool strict);

    bool refused() const { return refusal.has_value(); }
    bool fatal() const { return result.verdict == ZELCHECK_FATAL; }

    std::string_view source;  // the file's name, for people
    // Both belong to the caller and outlive this object.
    const Document& document;
    const zelcheck_result& result;
    // Why the document is refused; nothing when it comes through.
    std::optional<CheckFinding> refusal;
    std::vector<CheckFinding> warnings;
};

// The words for a verdict; a document that would end the process is refused.
// The texts live as long as the process.
const char* verdict_word(const CheckedDocument& checked);
const char* level_word(int32_t level);

// Sums over all documents.
// Filled while documents are checked. Each document counts as accepted, a repeat, skipped or
// refused.
struct CheckTotals {
    uint64_t documents = 0;
    uint64_t accepted = 0;  // without the repeats
    uint64_t repeats = 0;
    uint64_t skipped = 0;
    uint64_t refused = 0;
    uint64_t fatal = 0;  // among the refused
    uint64_t warnings = 0;
};

// Writes the results in one form. Borrows the file.
// One object writes the whole report. Called on the main thread alone. What the output throws comes
// through.
class CheckReport {
public:
    explicit CheckReport(OutputFile& out) : out_(out) {}
    virtual ~CheckReport() = default;

    // Before the first document.
    virtual void begin() {}
    // Once for each document, in the order in which they are read. `checked` is valid during the
    // call.
    virtual void document(const CheckedDocument& checked) = 0;
    // After the last document, also when a signal has ended the check.
    virtual void end(const CheckTotals&) {}

protected:
    OutputFile& out_;
};

// `out` is borrowed, and so are the options of the text report.
std::unique_ptr<CheckReport> text_report(OutputFile& out, const CheckOptions& options);
std::unique_ptr<CheckReport> json_report(OutputFile& out, const CheckOptions& options);
std::unique_ptr<CheckReport> sarif_report(OutputFile& out, const CheckOptions& options);

}  // namespace zelhost
