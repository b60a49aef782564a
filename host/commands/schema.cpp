// `zelhost schema`: JSON Schemas of what goes in and comes out.
#include "host/commands/schema.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>
#include <memory>

#include "host/commands/commands.h"
#include "host/lib/files.h"

namespace zelhost {
namespace {

// The first one is printed when none is named.
// A row for each schema that can be asked for.
struct Kind {
    const char* name;
    std::string (*make)();
};
constexpr Kind kKinds[] = {{"document", document_schema}, {"input", input_schema}, {"output", output_schema}};

// The defaults print the schema of a document on standard output.
struct SchemaOptions {
    std::string kind = kKinds[0].name;
    std::string output = "-";
};

constexpr const char* kFooter =
    R"(Kinds:
  document  an alert document, as it comes in the events 1536 and 1538
  input     a line that zelhost run reads
  output    a line that zelhost run writes
The schema of the document is made of the rows by which the agent reads it: what it refuses, the agent refuses, if the
keys are spelt as the engines spell them. What a schema cannot say, such as the bytes that no message may carry, zelhost
check tells.)";

// The parser has checked the name.
ExitCode print_schema(const SchemaOptions& options) {
    const auto* const kind = std::ranges::find(kKinds, options.kind, &Kind::name);
    const std::string text = json::pretty(kind->make());
    OutputFile file(options.output);
    file.write(text);
    file.flush();
    return kDone;
}

}  // namespace

// Every schema names the version of the language that it is written in.
json::Members schema_head(const char* title, const char* description) {
    return {{"$schema", json::text("https://json-schema.org/draft/2020-12/schema")},
            {"title", json::text(title)},
            {"description", json::text(description)}};
}

// Definitions stand in one place of each schema.
std::string place_of(std::string_view definition) { return fmt::format("#/$defs/{}", definition); }

std::string refer_to(std::string_view definition) { return json::object({{"$ref", json::text(place_of(definition))}}); }

// The key must be there, and its value must fit.
std::string has(std::string_view key, const std::string& value) {
    const std::string name(key);
    return json::object({{"properties", json::object({{name, value}})}, {"required", json::texts({name})}});
}

Action prepare_schema(CLI::App& app) {
    const auto options = std::make_shared<SchemaOptions>();
    std::vector<std::string> names;
    std::ranges::transform(kKinds, std::back_inserter(names), &Kind::name);
    app.footer(kFooter);
    app.add_option("KIND", options->kind, "What to describe: document (default), input or output")
        ->type_name("")
        ->check(CLI::IsMember(names));
    app.add_option("-o,--output", options->output, "Where the schema goes, - for standard output (default)")
        ->type_name("FILE");
    return [options] { return print_schema(*options); };
}

}  // namespace zelhost
