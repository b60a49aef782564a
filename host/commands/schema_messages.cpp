// The JSON form of vorn_trace_info, from the descriptors that are compiled in.
#include <fmt/format.h>
#include <retrace.pb.h>

#include <map>

#include "host/commands/schema.h"

namespace zelhost {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;
using json::Members;

// What stands for a number, a truth value or a text, as members of a schema. Protobuf writes 64 bits as a text, since a
// number of JSON loses digits; it reads a number and a text alike, and null as a field that is not there.
// The two forms of a value: as it is written, and as it may be read.
struct ValueRow {
    FieldDescriptor::CppType type;
    const char* written;
    const char* read;
};
constexpr const char* kNumberOrText = R"("type":["number","string","null"])";
constexpr const char* kWholeText = R"("type":"string","pattern":"^-?[0-9]+$")";
constexpr const char* kFraction = R"("anyOf":[{"type":"number"},{"enum":["NaN","Infinity","-Infinity"]}])";
constexpr ValueRow kValues[] = {
    {FieldDescriptor::CPPTYPE_INT32, R"("type":"integer")", kNumberOrText},
    {FieldDescriptor::CPPTYPE_UINT32, R"("type":"integer","minimum":0)", kNumberOrText},
    {FieldDescriptor::CPPTYPE_INT64, kWholeText, kNumberOrText},
    {FieldDescriptor::CPPTYPE_UINT64, kWholeText, kNumberOrText},
    {FieldDescriptor::CPPTYPE_FLOAT, kFraction, kNumberOrText},
    {FieldDescriptor::CPPTYPE_DOUBLE, kFraction, kNumberOrText},
    {FieldDescriptor::CPPTYPE_BOOL, R"("type":"boolean")", R"("type":["boolean","string","null"])"},
    {FieldDescriptor::CPPTYPE_STRING, R"("type":"string")", R"("type":["string","null"])"},
};

// What an object may hold besides its fields.
constexpr const char* kLatin1 =
    R"({"description":"Fields whose text is no UTF-8: each byte is written as one character.",)"
    R"("type":"array","items":{"type":"string"}})";
constexpr const char* kUnknown =
    R"({"description":"Fields that the message schema does not know, each with its number, its wire type and its value.",)"
    R"("type":"array","items":{"type":"object","required":["number","type","value"]}})";

// Made for one form. It collects definitions until they are taken.
class MessageDefinitions {
public:
    explicit MessageDefinitions(MessageForm form) : is_read_(form == MessageForm::read) {}

    // The definitions of a message and of all that it refers to.
    void add(const Descriptor* message) {
        // A message that is known already is not defined again. So the walk ends.
        if (!definitions_.try_emplace(message->name()).second) return;
        Members properties;
        // All names under which a field may stand.
        std::vector<std::string> names;
        for (int i = 0; i < message->field_count(); ++i) {
            const FieldDescriptor* const field = message->field(i);
            properties.emplace_back(field->name(), value_of(field));
            names.push_back(field->name());
            if (is_read_ && field->json_name() != field->name()) names.push_back(field->json_name());
        }
        // Only what is written by this program has these two keys.
        if (!is_read_) {
            properties.emplace_back("latin1", kLatin1);
            properties.emplace_back("unknown", kUnknown);
        }
        Members members = {{"type", is_read_ ? json::texts({"object", "null"}) : json::text("object")},
                           {"properties", json::object(properties)}};
        // Read are both spellings of a name; only that of the message schema is described.
        if (is_read_)
            members.emplace_back("propertyNames", json::object({{"enum", json::texts(names)}}));
        else
            members.emplace_back("additionalProperties", "false");
        definitions_[message->name()] = json::object(members);
    }

    // Definitions in the order of their names.
    Members take() { return {definitions_.begin(), definitions_.end()}; }

private:
    // A value that the enumeration does not name is written as its number, and a number is read.
    // An enumeration is a list of names and any number besides.
    void add(const EnumDescriptor* enumeration) {
        std::vector<std::string> names;
        for (int i = 0; i < enumeration->value_count(); ++i) names.push_back(enumeration->value(i)->name());
        const std::string named = json::object({{"enum", json::texts(names)}});
        const char* const number = is_read_ ? R"({"type":["number","null"]},{"type":"string","pattern":"^-?[0-9]+$"})"
                                            : R"({"type":"integer"})";
        definitions_[enumeration->name()] = fmt::format(R"({{"anyOf":[{},{}]}})", named, number);
    }

    // In the place of a list one element may be read.
    std::string value_of(const FieldDescriptor* field) {
        // The description names the number of the field and its type.
        const char* const list_words = field->is_repeated() ? "list of " : "";
        const std::string words = fmt::format("Field {}: {}{}.", field->number(), list_words, type_name(field));
        std::string value = element_of(field);
        if (field->is_repeated()) {
            // A list may be read from a single element.
            const std::string list = fmt::format(R"("type":"array","items":{{{}}})", value);
            value = is_read_ ? fmt::format(R"("anyOf":[{{{}}},{{{}}}])", list, value) : list;
        }
        return fmt::format(R"({{"description":{},{}}})", json::text(words), value);
    }

    static std::string type_name(const FieldDescriptor* field) {
        if (field->message_type() != nullptr) return field->message_type()->name();
        return field->enum_type() != nullptr ? field->enum_type()->name() : field->type_name();
    }

    // Members of a schema. What a field refers to is defined on the way.
    std::string element_of(const FieldDescriptor* field) {
        // A simple type has a row. A message or an enumeration is referred to by its name.
        for (const ValueRow& row : kValues)
            if (row.type == field->cpp_type()) return is_read_ ? row.read : row.written;
        if (field->message_type() != nullptr)
            add(field->message_type());
        else
            add(field->enum_type());
        return fmt::format(R"("$ref":"#/$defs/{}")", type_name(field));
    }

    // Which of the two forms is made.
    bool is_read_;
    // By name: the schema of a message, a message within it, or an enumeration.
    std::map<std::string, std::string> definitions_;
};

}  // namespace

json::Members message_definitions(MessageForm form) {
    MessageDefinitions definitions(form);
    definitions.add(vorn_retrace::vorn_trace_info::descriptor());
    return definitions.take();
}

}  // namespace zelhost
