// The bytes of an event from its JSON form: what stands in the line reaches the bus unchanged.
#pragma once

#include <optional>
#include <string>

#include "host/lib/json_text.h"

namespace zelhost {

// No value is a null pointer with size 0.
using Payload = std::optional<std::string>;

// The forms that a line may give its payload in; exactly one of these keys stands in it.
//   alert, json   the value's very bytes
//   text          a string's value
//   hex           pairs of hexadecimal digits
//   message       a vorn_trace_info in JSON form, serialised
//   data          null: no bytes at all
// Throws Failure when the line has none or two of them, or a value of another kind.
// The bytes are a copy.
Payload read_payload(const JsonText& line);

}  // namespace zelhost
