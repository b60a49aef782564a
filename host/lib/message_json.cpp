#include "host/lib/message_json.h"

#include <rapidjson/writer.h>

#include <vector>

#include "host/lib/message_fields.h"
#include "host/lib/utf8.h"

namespace zelhost {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::UnknownField;
using google::protobuf::UnknownFieldSet;

// Lets the writer fill a string. RapidJSON's own buffer counts what a text may need in 32 bits, too few for the largest
// message.
struct StringStream {
    using Ch = char;
    void Put(char character) { text += character; }
    void Flush() {}

    std::string text;
};

// Writes one message. Its state is the text so far.
class Printer {
public:
    std::string print(const Message& message) {
        // The text leaves without a copy.
        write(message);
        return std::move(stream_.text);
    }

private:
    void key(std::string_view name) { writer_.Key(name.data(), static_cast<rapidjson::SizeType>(name.size())); }
    void string(std::string_view text) { writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size())); }
    // False when the text is no UTF-8 and was written byte by byte.
    bool text(std::string_view value) {
        const bool good = is_utf8(value);
        if (good) {
            string(value);
        } else {
            const std::string json = latin1_json(value);
            writer_.RawValue(json.data(), json.size(), rapidjson::kStringType);
        }
        return good;
    }

    // Calls itself for messages inside messages.
    void write(const Message& message) {
        writer_.StartObject();
        std::vector<std::string> latin1;
        for (const FieldDescriptor* field : set_fields(message)) {
            key(field->name());
            if (field->is_repeated()) writer_.StartArray();
            for (int i = 0; i < value_count(message, *field); ++i) write(FieldValue(message, *field, i), latin1);
            if (field->is_repeated()) writer_.EndArray();
        }
        // The list stands behind the fields of its own object.
        if (!latin1.empty()) {
            key("latin1");
            writer_.StartArray();
            for (const std::string& name : latin1) string(name);
            writer_.EndArray();
        }
        const UnknownFieldSet& unknown = message.GetReflection()->GetUnknownFields(message);
        if (!unknown.empty()) {
            key("unknown");
            write(unknown);
        }
        writer_.EndObject();
    }

    // A text that is no UTF-8 adds its name to the list.
    void write(const FieldValue& value, std::vector<std::string>& latin1) {
        if (value.is_message()) return write(value.submessage());
        if (value.is_text()) {
            if (!text(value.text())) latin1.push_back(value.name());
            return;
        }
        write(value.scalar());
    }

    // In the order in which they stood in the message.
    void write(const UnknownFieldSet& fields) {
        writer_.StartArray();
        for (int i = 0; i < fields.field_count(); ++i) {
            const UnknownField& field = fields.field(i);
            writer_.StartObject();
            key("number");
            writer_.Int(field.number());
            write(field);
            writer_.EndObject();
        }
        writer_.EndArray();
    }
    // Type and value.
    void write(const UnknownField& field) {
        key("type");
        string(wire_name(field));
        key("value");
        if (field.type() == UnknownField::TYPE_GROUP) return write(field.group());
        if (field.type() != UnknownField::TYPE_LENGTH_DELIMITED) return write(wire_number(field));
        if (text(field.length_delimited())) return;
        key("latin1");
        writer_.Bool(true);
    }

    void write(const Scalar& scalar) {
        // A number that JSON can hold goes out as its digits.
        if (scalar.quoted) return string(scalar.text);
        writer_.RawValue(scalar.text.data(), scalar.text.size(), rapidjson::kNumberType);
    }

    StringStream stream_;
    rapidjson::Writer<StringStream> writer_{stream_};
};

}  // namespace

std::string message_json(const Message& message) { return Printer().print(message); }

}  // namespace zelhost
