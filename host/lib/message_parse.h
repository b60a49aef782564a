// Messages of the bus as objects of the generated classes.
#pragma once

#include <cstdint>

namespace vorn_retrace {
class vorn_trace_info;
}

namespace zelhost {

// False when the bytes are no message, as when a string in it is no UTF-8.
// The message keeps what was read before the bytes went wrong. Any thread.
bool parse_message(const char* data, uint64_t size, vorn_retrace::vorn_trace_info& message);

}  // namespace zelhost
