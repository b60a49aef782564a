// Reads a serialised message that may be damaged: what protobuf's own parser refuses as a whole is read as far as it
// goes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace google::protobuf {
class Message;
}

namespace zelhost {

// What is wrong at a place of a buffer.
struct Flaw {
    uint64_t offset;  // in bytes, from 0
    std::string
        path;  // as "threat.alert_rule[0].rule_id"; a number where the schema has no name; empty: the message itself
    std::string reason;  // for people, without a full stop
};

// The result of one reading. It owns its texts.
struct Reading {
    // Where the buffer breaks: every field before the offset is in the message, the one that begins there is not whole.
    // A buffer that ends inside a message has the break at its end.
    std::optional<Flaw> broken;
    // The first text that is no UTF-8 at the byte that is wrong, and how many such texts there are. Protobuf's parser
    // refuses them; here they are in the message as they stand.
    std::optional<Flaw> bad_text;
    uint64_t bad_texts = 0;
};

// Adds to the message, which is new, what protobuf would. What the schema does not know is among the unknown fields, as
// is a field with another wire type than its own. Of a text that the buffer cuts off, the beginning is taken.
// `message` must be of a type that the schema has. Any thread, with a message of its own.
Reading read_message(std::string_view bytes, google::protobuf::Message& message);

}  // namespace zelhost
