#include "host/commands/decode_text.h"

#include <fmt/chrono.h>

#include <charconv>

#include "host/lib/message_fields.h"
#include "host/lib/utf8.h"

namespace zelhost {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::UnknownField;
using google::protobuf::UnknownFieldSet;

// What stays of a folded list and of a folded text.
// In values of a list, and in bytes of a text.
// Both limits hold unless all is wanted.
constexpr int kListItems = 8;
constexpr size_t kTextBytes = 300;

constexpr int64_t kLastMillisecond = 253402300799999;  // of the year 9999

// The times of the schema are milliseconds since 1970 in 64 bits, and their names say that they are times. The rest of
// the names with "time" are texts, counts or a span.
// The unit is milliseconds in all of them.
bool is_time(const FieldDescriptor& field) {
    const std::string& name = field.name();
    const bool wide =
        field.cpp_type() == FieldDescriptor::CPPTYPE_INT64 || field.cpp_type() == FieldDescriptor::CPPTYPE_UINT64;
    return wide && (name.ends_with("time") || name == "trace_start" || name == "trace_end");
}

// Empty for what is no moment between 1970 and 9999.
std::string date(const std::string& digits) {
    // A number that cannot be read counts as no moment.
    int64_t ms = -1;
    std::from_chars(digits.data(), digits.data() + digits.size(), ms);
    if (ms < 0 || ms > kLastMillisecond) return {};
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<time_t>(ms / 1000)), ms % 1000);
}

// The length of the character at the beginning, at least 1; `good` tells whether it is UTF-8.
// A byte that begins no character counts as one by itself.
size_t character(std::string_view text, bool& good) {
    const auto first = static_cast<unsigned char>(text[0]);
    const size_t length = first < 0xc0 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    good = is_utf8(text.substr(0, length));
    return good ? length : 1;
}

// What a backslash and a letter stand for.
constexpr std::string_view kShort = "\n\t\r\"\\";
constexpr std::string_view kLetters = "ntr\"\\";

// One character. A terminal must not obey what stands in a message, so control characters do not go out as they are;
// the second half of them has two bytes.
std::string escaped(std::string_view character, bool good) {
    const auto last = static_cast<unsigned char>(character.back());
    if (!good) return fmt::format("\\x{:02x}", last);
    if (const size_t at = kShort.find(character); at != std::string_view::npos) return {'\\', kLetters[at]};
    const bool control = character.size() == 1 ? last < 0x20 || last == 0x7f : character[0] == '\xc2' && last < 0xa0;
    return control ? fmt::format("\\u{:04x}", last) : std::string(character);
}

// Fills one text. It keeps no state between two messages.
class Printer {
public:
    // `paint` is borrowed for the time of one text.
    Printer(const Paint& paint, bool all) : paint_(paint), all_(all) {}

    std::string print(const Message& message) {
        write(message, 0);
        return std::move(text_);
    }

private:
    // The indent and the name.
    void line(int level, std::string_view name, Tint tint = Tint::place) {
        text_.append(static_cast<size_t>(level) * 2, ' ');
        text_ += paint_(tint, name);
    }

    // A text in quotes.
    // A cut never goes through a character, because whole characters are taken.
    void quoted(std::string_view value) {
        text_ += '"';
        size_t at = 0;
        while (at < value.size() && (all_ || at < kTextBytes)) {
            bool good = false;
            const size_t length = character(value.substr(at), good);
            text_ += escaped(value.substr(at, length), good);
            at += length;
        }
        text_ += '"';
        // How much is left out is told, so that nobody takes the text for complete.
        if (at == value.size()) return;
        const size_t rest = value.size() - at;
        text_ += paint_(Tint::faint, fmt::format(" ... {} more byte{}", rest, rest == 1 ? "" : "s"));
    }

    // One field with all its values.
    // Each value of a list has a line of its own.
    void write(const Message& message, const FieldDescriptor& field, int level) {
        const int count = value_count(message, field);
        // A list that is only a little longer is folded all the same.
        const int shown = all_ || count <= kListItems ? count : kListItems;
        for (int i = 0; i < shown; ++i) {
            const FieldValue value(message, field, i);
            line(level, value.name());
            write(value, field, level);
        }
        if (shown == count) return;
        line(level, field.name());
        text_ += paint_(Tint::faint, fmt::format(": ... {} more", count - shown)) + '\n';
    }

    // Behind the name.
    // A message goes on in lines of its own.
    void write(const FieldValue& value, const FieldDescriptor& field, int level) {
        if (value.is_message()) return write_inside(value.submessage(), level);
        text_ += ": ";
        if (value.is_text()) {
            quoted(value.text());
        } else {
            const std::string digits = value.scalar().text;
            text_ += digits;
            // A time has its date beside it.
            const std::string moment = is_time(field) ? date(digits) : "";
            if (!moment.empty()) text_ += "  " + paint_(Tint::faint, moment);
        }
        text_ += '\n';
    }

    // A message with one value is shown on the line of its name. Deep messages would take many
    // lines otherwise.
    void write_inside(const Message& message, int level) {
        const auto fields = set_fields(message);
        // Unknown fields need lines of their own.
        const bool all_known = message.GetReflection()->GetUnknownFields(message).empty();
        const bool single = all_known && fields.size() == 1 && value_count(message, *fields[0]) == 1;
        if (all_known && fields.empty()) {
            text_ += ": " + paint_(Tint::faint, "empty") + '\n';
            return;
        }
        if (single) {
            const FieldValue value(message, *fields[0], 0);
            text_ += paint_(Tint::place, "." + value.name());
            return write(value, *fields[0], level);
        }
        text_ += '\n';
        write(message, level + 1);
    }

    // Known fields come first, those that the schema does not know behind them.
    void write(const Message& message, int level) {
        for (const FieldDescriptor* field : set_fields(message)) write(message, *field, level);
        write(message.GetReflection()->GetUnknownFields(message), message.GetDescriptor(), level);
    }

    // `type` is null in a group. A number that the schema has comes here with another wire type than the schema's.
    // Fields of a group are unknown as well, so groups within groups come here again.
    void write(const UnknownFieldSet& fields, const google::protobuf::Descriptor* type, int level) {
        const int shown = all_ || fields.field_count() <= kListItems ? fields.field_count() : kListItems;
        for (int i = 0; i < shown; ++i) {
            const UnknownField& field = fields.field(i);
            const FieldDescriptor* const known = type == nullptr ? nullptr : type->FindFieldByNumber(field.number());
            line(level, fmt::format("unknown {}", field.number()), Tint::warning);
            // A number that the schema has is named, although its value is of another type.
            if (known != nullptr) text_ += fmt::format(" ({} is no {})", known->name(), wire_name(field));
            text_ += fmt::format(": {}", wire_name(field));
            if (field.type() == UnknownField::TYPE_GROUP) {
                text_ += '\n';
                write(field.group(), nullptr, level + 1);
                continue;
            }
            text_ += ' ';
            if (field.type() == UnknownField::TYPE_LENGTH_DELIMITED)
                quoted(field.length_delimited());
            else
                text_ += wire_number(field).text;
            text_ += '\n';
        }
        if (shown == fields.field_count()) return;
        line(level, "unknown", Tint::warning);
        text_ += paint_(Tint::faint, fmt::format(": ... {} more", fields.field_count() - shown)) + '\n';
    }

    const Paint& paint_;
    // Without folding when it is set.
    bool all_;
    std::string text_;
};

}  // namespace

std::string message_text(const Message& message, const Paint& paint, bool all) {
    return Printer(paint, all).print(message);
}

}  // namespace zelhost
