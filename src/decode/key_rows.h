// The keys of the alert document as plain rows, for whoever describes the document. The decoder reads by the tables of
// json_fields.h; the rows are made of these at compile time and share their names. Keys that code reads by itself have
// rows beside that code.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "decode/json_fields.h"

namespace zel {

// What is taken from a value.
enum class ValueKind : uint8_t {
    text,
    decimal_text,  // a string of decimal digits
    int32,         // these four from any number
    uint32,
    int64,
    uint64,
    texts,    // the strings of a list; whatever else the value is or holds is passed over
    object,   // an object with members of its own
    objects,  // a list of objects; a value of another type counts as an empty list
};

struct KeyRow {
    const char* key;
    ValueKind kind;
    Need need;
    const char* members = nullptr;  // of an object or a list of objects: where its keys stand, see KeyTable::object
};

// Keys that stand in one kind of object. Several tables may speak of the same object.
struct KeyTable {
    const char* object;
    std::span<const KeyRow> keys;
    bool (*holds_for)(int32_t alert_type) = nullptr;  // null: in documents of every type
};

// All tables but those of the event types, which stand in event_types.h. "document" is the outermost object.
std::span<const KeyTable> document_key_tables();
std::span<const KeyTable> scenario_key_tables();

template <class R>
constexpr ValueKind value_kind(const Field<R>& field) {
    return std::visit(
        [](auto member) {
            using Member = decltype(member);
            if constexpr (std::is_same_v<Member, std::string R::*>) return ValueKind::text;
            if constexpr (std::is_same_v<Member, Decimal<R>>) return ValueKind::decimal_text;
            if constexpr (std::is_same_v<Member, uint32_t R::*>) return ValueKind::uint32;
            if constexpr (std::is_same_v<Member, int64_t R::*>) return ValueKind::int64;
            if constexpr (std::is_same_v<Member, uint64_t R::*>) return ValueKind::uint64;
            return ValueKind::int32;  // a widened number, too
        },
        field.member);
}

template <class R>
constexpr KeyRow key_row(const Field<R>& field) {
    return {field.key.name, value_kind(field), field.need};
}

template <class R, size_t count>
consteval std::array<KeyRow, count> key_rows(const Field<R> (&fields)[count]) {
    std::array<KeyRow, count> rows{};
    for (size_t i = 0; i < count; ++i) rows[i] = key_row(fields[i]);
    return rows;
}

}  // namespace zel
