// The schemas that `zelhost schema` prints, as JSON without spaces.
#pragma once

#include <string>
#include <string_view>

#include "host/commands/schema_json.h"

namespace zelhost {

// An alert document, from the decoder's own rows. Throws std::bad_alloc.
// All schemas are made anew at each call. Any thread.
std::string document_schema();
// A line that `run` reads, and one that it writes.
std::string input_schema();
std::string output_schema();

// How a message stands in JSON: as protobuf writes it, or in each of the ways in which protobuf reads it.
enum class MessageForm { written, read };

// A definition for a vorn_trace_info and for each message and enumeration inside it, from the message schema itself.
json::Members message_definitions(MessageForm form);

// Parts of all schemas: the members with which one begins, the place of a definition and a reference to it, and the
// condition that a key is there with a value that fits a schema.
// The texts are constants of this program.
json::Members schema_head(const char* title, const char* description);
std::string place_of(std::string_view definition);
std::string refer_to(std::string_view definition);
std::string has(std::string_view key, const std::string& value);

}  // namespace zelhost
