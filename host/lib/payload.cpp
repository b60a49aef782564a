#include "host/lib/payload.h"

#include "host/lib/bytes_text.h"
#include "host/lib/failure.h"
#include "host/lib/message.h"

namespace zelhost {
namespace {

using Member = JsonText::Member;
using Type = JsonText::Type;

// A document as it stands, with its spaces and its order: what the decoder sees must be what the author wrote.
Payload raw_bytes(const Member& member) { return std::string(member.raw); }

// The value behind the escapes, as bytes.
Payload text_bytes(const Member& member) {
    if (member.type != Type::string) throw Failure("\"{}\" must be a string", member.key);
    return member.text;
}

// Any bytes at all, for messages and for what is none.
Payload hex_bytes(const Member& member) {
    try {
        return bytes_from_hex(*text_bytes(member));
    } catch (const Failure& e) {
        throw Failure("\"{}\" must be a string of pairs of hexadecimal digits: {}", member.key, e.what());
    }
}

// The wire form of the message that the object describes.
Payload message_bytes(const Member& member) { return message_from_json(member.raw); }

// Only null, so that nobody gives bytes under a key that would drop them.
Payload no_bytes(const Member& member) {
    if (member.type != Type::null)
        throw Failure("\"{}\" can only be null; \"text\" and \"hex\" take bytes", member.key);
    return {};
}

// One row a form; the header tells what each takes.
// A key that a line may use and what makes bytes of its value.
struct Form {
    std::string_view key;
    Payload (*read)(const Member& member);
};
constexpr Form kForms[] = {
    {"alert", raw_bytes}, {"json", raw_bytes},        {"text", text_bytes},
    {"hex", hex_bytes},   {"message", message_bytes}, {"data", no_bytes},
};

}  // namespace

Payload read_payload(const JsonText& line) {
    const Form* chosen = nullptr;
    for (const Form& form : kForms) {
        // A search for each form, so that two of them are noticed.
        if (line.find(form.key) == nullptr) continue;
        if (chosen != nullptr) throw Failure("\"{}\" and \"{}\" cannot stand together", chosen->key, form.key);
        chosen = &form;
    }
    if (chosen == nullptr) throw Failure("the event has no payload: alert, json, text, hex, message or data");
    return chosen->read(*line.find(chosen->key));
}

}  // namespace zelhost
