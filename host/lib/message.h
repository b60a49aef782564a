// vorn_trace_info between its wire form and its JSON form, which message_json.h describes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zelhost {

// Nothing when there are no bytes or when they break somewhere.
std::optional<std::string> message_to_json(const char* data, uint64_t size);

// Throws Failure when the text does not fit the schema.
std::string message_from_json(std::string_view json);

}  // namespace zelhost
