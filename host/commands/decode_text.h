// The text of `zelhost decode --pretty`: a message as people read it.
#pragma once

#include <string>

#include "host/lib/color.h"

namespace google::protobuf {
class Message;
}

namespace zelhost {

// Lines with two spaces for each level: "NAME: VALUE" for a value, "NAME" or "NAME[INDEX]" above the fields of a
// message; one that holds a single value shares its line, as in tags[0].str_data. A time in milliseconds has its date
// beside it. What the schema does not know begins with its number. Control characters and bytes that are no UTF-8 show
// as \n or \xff. Unless all is wanted, lists and texts are folded: "... 312 more" stands for the rest.
// The text ends with a line end. It is empty when no field is set. Any thread.
std::string message_text(const google::protobuf::Message& message, const Paint& paint, bool all);

}  // namespace zelhost
