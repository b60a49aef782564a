// The reports of a check for programs: JSON Lines, one for each document, and SARIF 2.1.0.
#include <fmt/format.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>

#include "host/commands/check.h"
#include "host/lib/console.h"
#include "host/lib/utf8.h"

namespace zelhost {
namespace {

// Texts of documents may hold any bytes, and JSON may not: each byte that is no UTF-8 becomes U+FFFD.
// A wrong byte costs itself alone, so that the rest of the text stays readable.
std::string as_utf8(std::string_view text) {
    std::string good;
    for (;;) {
        const size_t size = utf8_prefix(text);
        good += text.substr(0, size);
        if (size == text.size()) return good;
        good += "\xEF\xBF\xBD";
        text.remove_prefix(size + 1);
    }
}

// JSON in the making. A null text is null.
// Used for one line, or for one result, at a time.
class Json {
public:
    // Objects and lists are opened and closed by calls of their own, because results have different
    // members.
    void open() { writer_.StartObject(); }
    void open(const char* key) {
        writer_.Key(key);
        writer_.StartObject();
    }
    void close() { writer_.EndObject(); }
    void open_list(const char* key) {
        writer_.Key(key);
        writer_.StartArray();
    }
    void close_list() { writer_.EndArray(); }
    void item(std::string_view text) {
        const std::string good = as_utf8(text);
        writer_.String(good.data(), static_cast<rapidjson::SizeType>(good.size()));
    }
    void text(const char* key, std::string_view value) {
        writer_.Key(key);
        item(value);
    }
    void number(const char* key, uint64_t value) {
        writer_.Key(key);
        writer_.Uint64(value);
    }
    void null(const char* key) {
        writer_.Key(key);
        writer_.Null();
    }
    // Empties the buffer, so that the next line can begin.
    std::string take() {
        std::string json(buffer_.GetString(), buffer_.GetSize());
        buffer_.Clear();
        writer_.Reset(buffer_);
        return json;
    }

private:
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
};

// --- JSON Lines ---

// Each document is a line by itself, so a reader need not wait for the end.
class JsonReport : public CheckReport {
public:
    using CheckReport::CheckReport;

    // The progress line must not stand in the middle of the output.
    void document(const CheckedDocument& checked) override {
        console::progress("");
        json_.open();
        json_.text("source", checked.source);
        json_.number("document", checked.document.number);
        json_.text("verdict", verdict_word(checked));
        if (checked.result.guid != nullptr)
            json_.text("guid", checked.result.guid);
        else
            json_.null("guid");
        // All keys are there in each line. A reader finds null where there is nothing to tell.
        if (checked.refusal) {
            finding(*checked.refusal);
        } else {
            for (const char* key : {"line", "column", "offset", "path", "reason"}) json_.null(key);
        }
        // The log lines are those that the agent would write.
        json_.open_list("log");
        for (size_t i = 0; i < checked.result.line_count; ++i) {
            const zelcheck_line& line = checked.result.lines[i];
            json_.item(std::string(level_word(line.level)) + " " + line.text);
        }
        json_.close_list();
        json_.open_list("warnings");
        for (const CheckFinding& warning : checked.warnings) {
            json_.open();
            finding(warning);
            json_.close();
        }
        json_.close_list();
        json_.close();
        out_.write(json_.take() + "\n");
    }

private:
    // The members of one place. They go into the object that is open.
    void finding(const CheckFinding& found) {
        json_.number("line", found.place.line);
        json_.number("column", found.place.column());
        json_.number("offset", found.offset);
        json_.text("path", found.path);
        json_.text("reason", found.reason);
    }

    Json json_;
};

// --- SARIF ---

// What a result may be about. The order is that of the rules in the file, to which results refer.
// The number of a rule is its place in the table below.
// Results name a rule by both, so the two must keep one order.
enum class Rule : uint8_t { refused, fatal, warning, skipped, repeat };
struct RuleWords {
    const char* id;
    const char* level;
    const char* words;
};
constexpr RuleWords kRules[] = {
    {"refused", "error", "The agent refuses the alert document, and the alert is lost."},
    {"fatal", "error", "The alert document would end the agent's process."},
    {"warning", "warning", "The agent takes something in the alert document otherwise than it seems to be meant."},
    {"skipped", "note", "All rules of the alert have the status \"Trigger\", so there is nothing to report."},
    {"repeat", "note",
     "An earlier document has the same rules and images; the agent marks the second within a minute."},
};

// A path as a reference to a file: a relative one stays relative.
// Bytes that a reference may hold stand as they are. All others are written as a percent sign and
// two digits.
std::string file_uri(std::string_view path) {
    constexpr std::string_view kPlain = "-._~/!$&'()*+,;=@";
    std::string uri = path.starts_with('/') ? "file://" : "";
    for (const char byte : path) {
        const bool plain = (byte >= '0' && byte <= '9') || ((byte | 0x20) >= 'a' && (byte | 0x20) <= 'z') ||
                           kPlain.find(byte) != std::string_view::npos;
        uri += plain ? std::string(1, byte) : fmt::format("%{:02X}", static_cast<unsigned char>(byte));
    }
    return uri;
}

// SARIF has no columns of bytes.
// Bytes that continue a character are not counted.
uint64_t characters(std::string_view text) {
    return static_cast<uint64_t>(
        std::ranges::count_if(text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
}

// One document of this form holds all results. It is written piece by piece.
class SarifReport : public CheckReport {
public:
    using CheckReport::CheckReport;

    // The results follow one by one, so that none has to be kept.
    // The tool and its rules come first, since results refer to the rules by their numbers.
    void begin() override {
        json_.open();
        json_.text("name", "zelhost");
        json_.text("version", ZEL_VERSION);
        json_.open_list("rules");
        for (const RuleWords& rule : kRules) {
            json_.open();
            json_.text("id", rule.id);
            json_.open("shortDescription");
            json_.text("text", rule.words);
            json_.close();
            json_.open("defaultConfiguration");
            json_.text("level", rule.level);
            json_.close();
            json_.close();
        }
        json_.close_list();
        json_.close();
        out_.write(R"({"$schema":"https://json.schemastore.org/sarif-2.1.0.json","version":"2.1.0","runs":[)"
                   R"({"tool":{"driver":)" +
                   json_.take() + R"(},"columnKind":"unicodeCodePoints","results":[)");
    }

    void document(const CheckedDocument& checked) override {
        console::progress("");
        // A warning that refuses the document is told as an error, and is not told twice.
        const bool by_warning = checked.result.refusal == nullptr && checked.refused();
        if (checked.refused() && !by_warning)
            result(checked, checked.fatal() ? Rule::fatal : Rule::refused, "error", *checked.refusal);
        // What concerns a whole document is shown at its beginning.
        const CheckFinding whole{"", "", 0, checked.document.place(0), 0};
        if (checked.result.verdict == ZELCHECK_SKIPPED) result(checked, Rule::skipped, "note", whole);
        if (checked.result.verdict == ZELCHECK_REPEAT) result(checked, Rule::repeat, "note", whole);
        for (const CheckFinding& warning : checked.warnings)
            result(checked, Rule::warning, by_warning ? "error" : "warning", warning);
    }

    void end(const CheckTotals&) override { out_.write("\n]}]}\n"); }

private:
    // The number of the rule stands beside its name, as the form asks for.
    void result(const CheckedDocument& checked, Rule rule, const char* level, const CheckFinding& found) {
        const RuleWords& words = kRules[static_cast<size_t>(rule)];
        json_.open();
        json_.text("ruleId", words.id);
        json_.number("ruleIndex", static_cast<uint64_t>(rule));
        json_.text("level", level);
        json_.open("message");
        json_.text("text", found.reason.empty() ? std::string_view(words.words) : found.reason);
        json_.close();
        json_.open_list("locations");
        json_.open();
        json_.open("physicalLocation");
        json_.open("artifactLocation");
        json_.text("uri", checked.source == "<stdin>" ? "stdin" : file_uri(checked.source));
        json_.close();
        region(found);
        json_.close();
        // Where in the document the finding is, by its keys.
        if (!found.path.empty()) {
            json_.open_list("logicalLocations");
            json_.open();
            json_.text("fullyQualifiedName", found.path);
            json_.close();
            json_.close_list();
        }
        json_.close();
        json_.close_list();
        json_.close();
        // Results are separated by commas, and none stands before the first.
        out_.write((any_ ? ",\n" : "\n") + json_.take());
        any_ = true;
    }

    // Columns count from 1 and in characters; bytes are told beside them.
    void region(const CheckFinding& found) {
        const FilePlace& place = found.place;
        const uint64_t column = characters(place.text.substr(0, place.at)) + 1;
        json_.open("region");
        json_.number("startLine", place.line);
        json_.number("startColumn", column);
        json_.number("endColumn", column + characters(place.text.substr(place.at, found.width)));
        json_.number("byteOffset", place.offset);
        json_.number("byteLength", found.width);
        json_.close();
    }

    Json json_;
    // Whether a result was written already.
    bool any_ = false;
};

}  // namespace

std::unique_ptr<CheckReport> json_report(OutputFile& out, const CheckOptions&) {
    return std::make_unique<JsonReport>(out);
}

std::unique_ptr<CheckReport> sarif_report(OutputFile& out, const CheckOptions&) {
    return std::make_unique<SarifReport>(out);
}

}  // namespace zelhost
