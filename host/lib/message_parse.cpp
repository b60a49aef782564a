#include "host/lib/message_parse.h"

#include <google/protobuf/stubs/logging.h>
#include <retrace.pb.h>

#include <limits>

namespace zelhost {

bool parse_message(const char* data, uint64_t size, vorn_retrace::vorn_trace_info& message) {
    const google::protobuf::LogSilencer quiet;  // a refused string is shown as a result, not as a line of the library
    // The library counts sizes in an int.
    if (data == nullptr || size > std::numeric_limits<int>::max()) return false;
    return message.ParseFromArray(data, static_cast<int>(size));
}

}  // namespace zelhost
