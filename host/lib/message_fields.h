// Values of a message by their place in the schema, for whatever shows messages.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/unknown_field_set.h>

#include <string>
#include <vector>

namespace zelhost {

// The fields that are set, in the order of their numbers.
std::vector<const google::protobuf::FieldDescriptor*> set_fields(const google::protobuf::Message& message);
// How many values a field that is set has.
int value_count(const google::protobuf::Message& message, const google::protobuf::FieldDescriptor& field);

// A number, a truth value or an enum's value, as text.
struct Scalar {
    std::string text;  // of an enum's value the name, or its number when it has none
    bool quoted;       // whether JSON has it as a string
};

// What the schema does not know: varint, fixed32, fixed64, bytes or group, and the number of one of the first three.
const char* wire_name(const google::protobuf::UnknownField& field);
Scalar wire_number(const google::protobuf::UnknownField& field);

// A value of a field that is set: in a list the one with this index, otherwise the only one. Borrows both; short-lived.
// An object serves one value while it is shown.
class FieldValue {
public:
    FieldValue(const google::protobuf::Message& message, const google::protobuf::FieldDescriptor& field, int index)
        : message_(message), field_(field), index_(field.is_repeated() ? index : -1) {}

    // As "rule_id" or "alert_tags[2]".
    std::string name() const;
    bool is_text() const { return field_.cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_STRING; }
    bool is_message() const { return field_.cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_MESSAGE; }

    // Each for its own kind of field alone.
    std::string text() const;
    const google::protobuf::Message& submessage() const;
    Scalar scalar() const;

private:
    // What the two functions of the reflection give, for a single field and for a list.
    template <class Single, class Repeated>
    auto get(Single single, Repeated repeated) const {
        const google::protobuf::Reflection& reflection = *message_.GetReflection();
        return index_ < 0 ? (reflection.*single)(message_, &field_) : (reflection.*repeated)(message_, &field_, index_);
    }

    const google::protobuf::Message& message_;
    const google::protobuf::FieldDescriptor& field_;
    int index_;
};

}  // namespace zelhost
