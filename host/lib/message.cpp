#include "host/lib/message.h"

#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/json_util.h>
#include <retrace.pb.h>

#include <limits>

#include "host/lib/failure.h"

namespace zelhost {

using google::protobuf::util::JsonPrintOptions;

// Field names as in the schema, so that a reader finds them there; enum values by name.
std::optional<std::string> message_to_json(const char* data, uint64_t size) {
    const google::protobuf::LogSilencer quiet;  // a refused string is shown as a result, not as a line of the library
    vorn_retrace::vorn_trace_info message;
    if (data == nullptr || size > std::numeric_limits<int>::max()) return {};
    if (!message.ParseFromArray(data, static_cast<int>(size))) return {};
    JsonPrintOptions options;
    options.preserve_proto_field_names = true;
    std::string json;
    if (!MessageToJsonString(message, &json, options).ok()) return {};
    return json;
}

// A field that the schema does not know is refused: it is most likely misspelt.
std::string message_from_json(std::string_view json) {
    const google::protobuf::LogSilencer quiet;
    vorn_retrace::vorn_trace_info message;
    const auto status = google::protobuf::util::JsonStringToMessage({json.data(), json.size()}, &message);
    if (!status.ok()) throw Failure("no vorn_trace_info: {}", std::string(status.message()));
    return message.SerializeAsString();
}

}  // namespace zelhost
