#include "host/lib/message.h"

#include <google/protobuf/arena.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/json_util.h>
#include <retrace.pb.h>

#include "host/lib/failure.h"
#include "host/lib/message_json.h"
#include "host/lib/message_reader.h"

namespace zelhost {

using vorn_retrace::vorn_trace_info;

std::optional<std::string> message_to_json(const char* data, uint64_t size) {
    if (data == nullptr) return {};
    // The arena frees the whole message at once, which is quicker for a large one.
    google::protobuf::Arena arena;
    auto& message = *google::protobuf::Arena::CreateMessage<vorn_trace_info>(&arena);
    if (read_message({data, size}, message).broken) return {};
    return message_json(message);
}

// A field that the schema does not know is refused: it is most likely misspelt.
std::string message_from_json(std::string_view json) {
    const google::protobuf::LogSilencer quiet;  // the failure says it, so the library need not
    vorn_trace_info message;
    const auto status = google::protobuf::util::JsonStringToMessage({json.data(), json.size()}, &message);
    if (!status.ok()) throw Failure("no vorn_trace_info: {}", std::string(status.message()));
    // The result is in the wire format.
    return message.SerializeAsString();
}

}  // namespace zelhost
