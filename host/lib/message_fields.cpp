#include "host/lib/message_fields.h"

#include <fmt/format.h>
#include <google/protobuf/stubs/strutil.h>

#include <cmath>

namespace zelhost {

using google::protobuf::EnumValueDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::UnknownField;
using R = google::protobuf::Reflection;

std::vector<const FieldDescriptor*> set_fields(const Message& message) {
    std::vector<const FieldDescriptor*> fields;
    message.GetReflection()->ListFields(message, &fields);
    return fields;
}

// A single field that is set has one value.
int value_count(const Message& message, const FieldDescriptor& field) {
    return field.is_repeated() ? message.GetReflection()->FieldSize(message, &field) : 1;
}

// In the order of the library's enumeration.
const char* wire_name(const UnknownField& field) {
    static constexpr const char* kNames[] = {"varint", "fixed32", "fixed64", "bytes", "group"};
    return kNames[field.type()];
}

Scalar wire_number(const UnknownField& field) {
    switch (field.type()) {
        case UnknownField::TYPE_VARINT: return {fmt::to_string(field.varint()), true};
        case UnknownField::TYPE_FIXED64: return {fmt::to_string(field.fixed64()), true};
        case UnknownField::TYPE_FIXED32: return {fmt::to_string(field.fixed32()), false};
        // Bytes and groups are no numbers.
        default: return {"", true};
    }
}

std::string FieldValue::name() const {
    return index_ < 0 ? field_.name() : fmt::format("{}[{}]", field_.name(), index_);
}

std::string FieldValue::text() const { return get(&R::GetString, &R::GetRepeatedString); }

const Message& FieldValue::submessage() const {
    const R& reflection = *message_.GetReflection();
    return index_ < 0 ? reflection.GetMessage(message_, &field_)
                      : reflection.GetRepeatedMessage(message_, &field_, index_);
}

// Numbers of 64 bits are strings in JSON, since many of its readers keep only 53 bits; and it has no digits for what is
// no finite number.
Scalar FieldValue::scalar() const {
    switch (field_.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32: return {fmt::to_string(get(&R::GetInt32, &R::GetRepeatedInt32)), false};
        case FieldDescriptor::CPPTYPE_UINT32: return {fmt::to_string(get(&R::GetUInt32, &R::GetRepeatedUInt32)), false};
        case FieldDescriptor::CPPTYPE_INT64: return {fmt::to_string(get(&R::GetInt64, &R::GetRepeatedInt64)), true};
        case FieldDescriptor::CPPTYPE_UINT64: return {fmt::to_string(get(&R::GetUInt64, &R::GetRepeatedUInt64)), true};
        case FieldDescriptor::CPPTYPE_BOOL: return {get(&R::GetBool, &R::GetRepeatedBool) ? "true" : "false", false};
        case FieldDescriptor::CPPTYPE_FLOAT: {
            const float value = get(&R::GetFloat, &R::GetRepeatedFloat);
            // These three words are those of protobuf's own JSON form.
            if (std::isnan(value)) return {"NaN", true};
            if (std::isinf(value)) return {value > 0 ? "Infinity" : "-Infinity", true};
            return {google::protobuf::SimpleFtoa(value), false};
        }
        case FieldDescriptor::CPPTYPE_ENUM: {
            const int value = get(&R::GetEnumValue, &R::GetRepeatedEnumValue);
            const EnumValueDescriptor* const named = field_.enum_type()->FindValueByNumber(value);
            // A number that the enumeration does not have is shown as it is.
            return named != nullptr ? Scalar{named->name(), true} : Scalar{fmt::to_string(value), false};
        }
        default: return {"", true};  // a kind that the schema does not have
    }
}

}  // namespace zelhost
