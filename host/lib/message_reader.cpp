#include "host/lib/message_reader.h"

#include <fmt/format.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/unknown_field_set.h>

#include <bit>
#include <cstring>
#include <limits>
#include <vector>

#include "host/lib/utf8.h"

namespace zelhost {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;
using google::protobuf::UnknownFieldSet;

// The wire format's types of a value; the number is in the lowest bits of a field's key.
enum Wire : uint32_t { kVarint = 0, kFixed64 = 1, kBytes = 2, kGroup = 3, kEndGroup = 4, kFixed32 = 5 };

// Limits of protobuf's parser. What it refuses must break here, too.
constexpr size_t kKeyBytes = 5;
constexpr size_t kLengthBytes = 5;
constexpr size_t kNumberBytes = 10;
constexpr int kDeepest = 100;
constexpr size_t kLongestCharacter = 4;

// How far the message or list at hand reaches.
// A message inside another one may be said to reach beyond it, and the buffer may be shorter than
// either.
struct Extent {
    uint64_t end;     // in the buffer
    uint64_t beyond;  // bytes of it that the buffer lacks
    bool whole_buffer = false;
};

// The schema has no other kinds: a test walks it.
Wire wire_of(const FieldDescriptor& field) {
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_STRING:
        case FieldDescriptor::CPPTYPE_MESSAGE: return kBytes;
        case FieldDescriptor::CPPTYPE_FLOAT: return kFixed32;
        case FieldDescriptor::CPPTYPE_DOUBLE: return kFixed64;
        default: return kVarint;
    }
}

// A list grows, a single value is replaced by a later one.
template <class Value>
void put(Message& message, const FieldDescriptor& field,
         void (Reflection::*set)(Message*, const FieldDescriptor*, Value) const,
         void (Reflection::*add)(Message*, const FieldDescriptor*, Value) const, std::type_identity_t<Value> value) {
    (message.GetReflection()->*(field.is_repeated() ? add : set))(&message, &field, std::move(value));
}

// Numbers are cut to the field's width, as protobuf does.
void put_number(Message& message, const FieldDescriptor& field, uint64_t bits) {
    // The bits are those of the wire. A field of 32 bits takes the lowest.
    using R = Reflection;
    using F = FieldDescriptor;
    switch (field.cpp_type()) {
        case F::CPPTYPE_INT32: return put(message, field, &R::SetInt32, &R::AddInt32, static_cast<int32_t>(bits));
        case F::CPPTYPE_INT64: return put(message, field, &R::SetInt64, &R::AddInt64, static_cast<int64_t>(bits));
        case F::CPPTYPE_UINT32: return put(message, field, &R::SetUInt32, &R::AddUInt32, static_cast<uint32_t>(bits));
        case F::CPPTYPE_UINT64: return put(message, field, &R::SetUInt64, &R::AddUInt64, bits);
        case F::CPPTYPE_BOOL: return put(message, field, &R::SetBool, &R::AddBool, bits != 0);
        case F::CPPTYPE_ENUM: return put(message, field, &R::SetEnumValue, &R::AddEnumValue, static_cast<int>(bits));
        case F::CPPTYPE_FLOAT:
            return put(message, field, &R::SetFloat, &R::AddFloat, std::bit_cast<float>(static_cast<uint32_t>(bits)));
        case F::CPPTYPE_DOUBLE: return put(message, field, &R::SetDouble, &R::AddDouble, std::bit_cast<double>(bits));
        case F::CPPTYPE_STRING:
        case F::CPPTYPE_MESSAGE: return;
    }
}

// One walk over the bytes. Every function that reads answers false at the break, which is noted then; the path stays as
// it was there.
// Fills one message and lives as long as that takes.
class Reader {
public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    Reading read(Message& message) {
        if (bytes_.size() > std::numeric_limits<int>::max())
            fail(0, "larger than 2 GiB, which no message can be");
        else
            read_fields(message, {bytes_.size(), 0, true});
        return std::move(reading_);
    }

private:
    struct Step {
        const FieldDescriptor* field;  // null for what the schema does not know
        int number;                    // the index in a list, the field's number without a name; else negative
    };
    // What the bytes before a value say: where they begin, the field's number and its wire type.
    struct Key {
        uint64_t begin;
        int number;
        Wire wire;
    };

    // Always false, so that a caller can return it at once.
    template <class... T>
    bool fail(uint64_t offset, fmt::format_string<T...> text, T&&... values) {
        reading_.broken = Flaw{offset, path(), fmt::format(text, std::forward<T>(values)...)};
        return false;
    }
    // The place in the message where the reading is.
    std::string path() const {
        std::string text;
        for (const Step& step : path_) {
            if (!text.empty()) text += '.';
            if (step.field == nullptr)
                text += fmt::to_string(step.number);
            else
                text += step.field->name() + (step.number < 0 ? "" : fmt::format("[{}]", step.number));
        }
        return text;
    }

    // What a piece runs over when it leaves the extent by so many bytes.
    // The words differ because the cause does: a buffer that was cut, or a length that is wrong.
    std::string overrun(uint64_t over, const Extent& extent) const {
        if (extent.whole_buffer || over <= extent.beyond)
            return fmt::format("{} byte{} after the buffer", over, over == 1 ? "" : "s");
        const uint64_t rest = over - extent.beyond;
        return fmt::format("{} byte{} after the message that holds it", rest, rest == 1 ? "" : "s");
    }

    // A number in groups of seven bits. `what` and `begin` are for the failure: the piece, and where its field begins.
    bool read_varint(uint64_t& value, size_t longest, const Extent& extent, const char* what, uint64_t begin) {
        value = 0;
        for (size_t i = 0; i < longest; ++i) {
            if (at_ == extent.end)
                return fail(begin, "the {} is cut off by the end of the {}", what,
                            extent.whole_buffer || extent.beyond > 0 ? "buffer" : "message that holds it");
            const auto byte = static_cast<unsigned char>(bytes_[at_++]);
            // Groups of seven bits, the lowest first. Bits beyond 64 fall out.
            value |= uint64_t{byte & 0x7fu} << (7 * i);
            if (byte < 0x80) return true;
        }
        return fail(begin, "the {} has more than {} bytes", what, longest);
    }

    bool read_fixed(uint64_t& value, size_t size, const Extent& extent, uint64_t begin) {
        if (size > extent.end - at_)
            return fail(begin, "the number ends {}", overrun(size - (extent.end - at_), extent));
        value = 0;
        // A shorter number leaves the upper bytes 0.
        memcpy(&value, bytes_.data() + at_, size);  // the wire format is that of the machine
        at_ += size;
        return true;
    }

    bool read_number(uint64_t& value, Wire wire, const Extent& extent, uint64_t begin) {
        if (wire == kVarint) return read_varint(value, kNumberBytes, extent, "number", begin);
        return read_fixed(value, wire == kFixed64 ? sizeof(uint64_t) : sizeof(uint32_t), extent, begin);
    }

    bool read_key(Key& key, const Extent& extent) {
        key.begin = at_;
        uint64_t bits;
        if (!read_varint(bits, kKeyBytes, extent, "key of a field", key.begin)) return false;
        // The number of the field stands above the three bits of the wire type.
        key.number = static_cast<int>(static_cast<uint32_t>(bits) >> 3);
        key.wire = static_cast<Wire>(bits & 7);
        if (key.number == 0) return fail(key.begin, "a field with the number 0");
        if (key.wire > kFixed32)
            return fail(key.begin, "field {} has the wire type {}, which does not exist", key.number,
                        static_cast<uint32_t>(key.wire));
        return true;
    }

    // The extent of what is given with its length. A piece that the buffer cuts off is entered, since its beginning is
    // there; where it contradicts the message around it, nobody knows which of the two lengths is wrong.
    bool read_length(Extent& piece, const Extent& extent, const char* what, uint64_t begin) {
        // A length of more than five bytes is refused by protobuf as well.
        uint64_t length;
        if (!read_varint(length, kLengthBytes, extent, "length", begin)) return false;
        const uint64_t there = extent.end - at_;
        const uint64_t over = length > there ? length - there : 0;
        if (over > extent.beyond && !extent.whole_buffer)
            return fail(begin, "the {} ends {}", what, overrun(over, extent));
        piece = {over > 0 ? extent.end : at_ + length, over};
        return true;
    }
    bool read_bytes(std::string_view& value, const Extent& extent, const char* what, uint64_t begin) {
        Extent piece;
        if (!read_length(piece, extent, what, begin)) return false;
        // What is there of a text is used. The break is told none the less.
        value = bytes_.substr(at_, piece.end - at_);
        at_ = piece.end;
        return piece.beyond == 0 || fail(begin, "the {} ends {}", what, overrun(piece.beyond, extent));
    }

    bool read_text(Message& message, const FieldDescriptor& field, const Extent& extent, uint64_t begin) {
        std::string_view text;
        const bool whole = read_bytes(text, extent, "text", begin);
        const size_t good = utf8_prefix(text);
        // The cut may go through a character.
        if (!whole && text.size() - good < kLongestCharacter) text = text.substr(0, good);
        if (good < text.size() && reading_.bad_texts++ == 0)
            reading_.bad_text =
                Flaw{static_cast<uint64_t>(text.data() - bytes_.data()) + good, path(),
                     fmt::format("no UTF-8 begins with the byte 0x{:02x}", static_cast<unsigned char>(text[good]))};
        if (whole || !text.empty())
            put(message, field, &Reflection::SetString, &Reflection::AddString, std::string(text));
        return whole;
    }

    // A list of numbers in one piece. Each has its own place in the path.
    bool read_packed(Message& message, const FieldDescriptor& field, const Extent& extent, uint64_t begin) {
        Extent list;
        // The list itself has no index.
        path_.back().number = -1;
        if (!read_length(list, extent, "list", begin)) return false;
        while (at_ < list.end) {
            path_.back().number = message.GetReflection()->FieldSize(message, &field);
            uint64_t bits;
            if (!read_number(bits, wire_of(field), list, at_)) return false;
            put_number(message, field, bits);
        }
        path_.back().number = -1;
        return list.beyond == 0 || fail(at_, "the list ends {}", overrun(list.beyond, extent));
    }

    bool read_submessage(Message& message, const FieldDescriptor& field, const Extent& extent, uint64_t begin) {
        Extent inside;
        // The child is made before its bytes are read. A message that breaks inside still shows
        // what came before.
        if (!read_length(inside, extent, "message", begin)) return false;
        const Reflection& reflection = *message.GetReflection();
        Message* const child =
            field.is_repeated() ? reflection.AddMessage(&message, &field) : reflection.MutableMessage(&message, &field);
        return enter(begin) && read_fields(*child, inside) && leave();
    }

    bool read_known(Message& message, const FieldDescriptor& field, const Key& key, const Extent& extent) {
        // A list of numbers may come in one piece although each could come alone.
        if (key.wire != wire_of(field)) return read_packed(message, field, extent, key.begin);
        if (field.cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE)
            return read_submessage(message, field, extent, key.begin);
        if (field.cpp_type() == FieldDescriptor::CPPTYPE_STRING) return read_text(message, field, extent, key.begin);
        uint64_t bits;
        if (!read_number(bits, key.wire, extent, key.begin)) return false;
        put_number(message, field, bits);
        return true;
    }

    // The value is kept as it came, since nobody knows what it means.
    bool read_unknown(UnknownFieldSet& fields, const Key& key, const Extent& extent) {
        if (key.wire == kEndGroup) return fail(key.begin, "a group ends that did not begin");
        if (key.wire == kGroup)
            return enter(key.begin) && read_group(*fields.AddGroup(key.number), key, extent) && leave();
        if (key.wire == kBytes) {
            std::string_view bytes;
            const bool whole = read_bytes(bytes, extent, "field", key.begin);
            if (whole || !bytes.empty()) fields.AddLengthDelimited(key.number, std::string(bytes));
            return whole;
        }
        uint64_t bits;
        if (!read_number(bits, key.wire, extent, key.begin)) return false;
        if (key.wire == kVarint) fields.AddVarint(key.number, bits);
        if (key.wire == kFixed64) fields.AddFixed64(key.number, bits);
        if (key.wire == kFixed32) fields.AddFixed32(key.number, static_cast<uint32_t>(bits));
        return true;
    }

    // Up to the key that ends the group.
    bool read_group(UnknownFieldSet& fields, const Key& group, const Extent& extent) {
        for (;;) {
            Key key;
            if (at_ == extent.end) return fail(at_, "the group does not end");
            if (!read_key(key, extent)) return false;
            if (key.wire == kEndGroup && key.number == group.number) return true;
            path_.push_back({nullptr, key.number});
            if (!read_unknown(fields, key, extent)) return false;
            path_.pop_back();
        }
    }

    bool read_fields(Message& message, const Extent& extent) {
        const Reflection& reflection = *message.GetReflection();
        while (at_ < extent.end) {
            Key key;
            if (!read_key(key, extent)) return false;
            const FieldDescriptor* const field = message.GetDescriptor()->FindFieldByNumber(key.number);
            const bool packed = field != nullptr && field->is_packable() && key.wire == kBytes;
            // A field with a wire type of its own, or a list in one piece. Anything else is unknown
            // to the schema.
            if (field != nullptr && (key.wire == wire_of(*field) || packed)) {
                path_.push_back({field, field->is_repeated() ? reflection.FieldSize(message, field) : -1});
                if (!read_known(message, *field, key, extent)) return false;
            } else {
                path_.push_back({nullptr, key.number});
                if (!read_unknown(*reflection.MutableUnknownFields(&message), key, extent)) return false;
            }
            // Only a value that was read whole leaves the path. At a break the path tells the
            // place.
            path_.pop_back();
        }
        return extent.beyond == 0 || fail(at_, "the message ends {}", overrun(extent.beyond, extent));
    }

    // A limit as in protobuf's parser. Without it a hostile message could use up the stack.
    bool enter(uint64_t begin) {
        return ++depth_ <= kDeepest || fail(begin, "more than {} messages and groups inside each other", kDeepest);
    }
    bool leave() {
        --depth_;
        return true;
    }

    std::string_view bytes_;
    uint64_t at_ = 0;  // the next byte
    int depth_ = 0;
    std::vector<Step> path_;
    Reading reading_;
};

}  // namespace

Reading read_message(std::string_view bytes, Message& message) { return Reader(bytes).read(message); }

}  // namespace zelhost
