// Messages as JSON, as protobuf maps them, and with what protobuf's own printer leaves out.
#pragma once

#include <string>

namespace google::protobuf {
class Message;
}

namespace zelhost {

// One line without its end: field names as in the schema, enum values by name, numbers of 64 bits as strings, fields
// with their default left out. Two keys may stand behind an object's fields:
//   "latin1"   the fields, as "rule_id" or "alert_tags[2]", whose text is no UTF-8 and was written
//              one byte as one character
//   "unknown"  what the schema does not know: {"number":99,"type":"varint","value":"7"} for each;
//              type is varint, fixed32, fixed64, bytes, or group with a list as value; bytes are a
//              text, with "latin1":true if they are no UTF-8
// Throws nothing but for want of memory. Any thread.
std::string message_json(const google::protobuf::Message& message);

}  // namespace zelhost
