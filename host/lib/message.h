// vorn_trace_info between its wire form and protobuf's JSON form, under the schema's own field names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zelhost {

// Nothing when the message does not parse, as when a string in it is no UTF-8.
std::optional<std::string> message_to_json(const char* data, uint64_t size);

// Throws Failure when the text does not fit the schema.
std::string message_from_json(std::string_view json);

}  // namespace zelhost
