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
struct CheckFinding {
    std::string_view reason;
    std::string_view path;
    uint64_t offset;  // in the document
    FilePlace place;
    size_t width;  // bytes of the line that are meant
};

// A document and what becomes of it. Borrows all that it speaks of.
struct CheckedDocument {
    // With `strict` a warning refuses the document.
    CheckedDocument(std::string_view source, const Document& document, const zelcheck_result& result, bool strict);

    bool refused() const { return refusal.has_value(); }
    bool fatal() const { return result.verdict == ZELCHECK_FATAL; }

    std::string_view source;  // the file's name, for people
    const Document& document;
    const zelcheck_result& result;
    std::optional<CheckFinding> refusal;
    std::vector<CheckFinding> warnings;
};

// The words for a verdict; a document that would end the process is refused.
const char* verdict_word(const CheckedDocument& checked);
const char* level_word(int32_t level);

// Sums over all documents.
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
class CheckReport {
public:
    explicit CheckReport(OutputFile& out) : out_(out) {}
    virtual ~CheckReport() = default;

    virtual void begin() {}
    virtual void document(const CheckedDocument& checked) = 0;
    virtual void end(const CheckTotals&) {}

protected:
    OutputFile& out_;
};

std::unique_ptr<CheckReport> text_report(OutputFile& out, const CheckOptions& options);
std::unique_ptr<CheckReport> json_report(OutputFile& out, const CheckOptions& options);
std::unique_ptr<CheckReport> sarif_report(OutputFile& out, const CheckOptions& options);

}  // namespace zelhost
