// vorn_trace_info between its wire form and protobuf's JSON form, under the schema's own field names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vorn_retrace {
class vorn_trace_info;
}

namespace zelhost {

// Reads a message of the bus. False when it does not parse, as when a string in it is no UTF-8.
bool parse_message(const char* data, uint64_t size, vorn_retrace::vorn_trace_info& message);

// Nothing when the message does not parse.
std::optional<std::string> message_to_json(const char* data, uint64_t size);

// Throws Failure when the text does not fit the schema.
std::string message_from_json(std::string_view json);

}  // namespace zelhost
