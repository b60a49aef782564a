// Tables of the keys that fill a record, and the one reader for all of them.
//
// A row names a key, the member that it fills, and what happens when the key is missing or holds another type. The
// member's type says how the value is taken:
//
//   std::string           a string
//   uint32_t, int32_t     the number as cJSON's integer: cut off at the limits of int, unsigned members take its bits
//   int64_t, uint64_t     the number as a double, truncated towards zero: exact up to 2^53
//   Decimal               uint64_t from a string of decimal digits, as strtoull takes it
//   Widened               int64_t from cJSON's integer with its sign
//
// Rows are read in table order, and the reading stops at the first required key that fails: order decides which key the
// log names.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <source_location>
#include <span>
#include <string>
#include <type_traits>
#include <variant>

#include "decode/json_object.h"
#include "decode/observer.h"

namespace zel {

enum class Need : uint8_t {
    required,  // ERROR line; the reading stops
    optional,  // DEBUG line; the member stays as it was constructed, here and in all that follow
    warned,    // WARN line without the key
    silent,
};

// How a required key of another type is reported.
enum class Words : uint8_t {
    not_string,  // "KEY is not string.", also for a number key
    not_type,    // "KEY is not 0x00000008." with the type that was expected
};

template <class R>
struct Decimal {
    uint64_t R::* member;
};
template <class R>
struct Widened {
    int64_t R::* member;
};

template <class R>
struct Field {
    Key key;
    std::variant<std::string R::*, uint32_t R::*, int32_t R::*, int64_t R::*, uint64_t R::*, Decimal<R>, Widened<R>>
        member;
    Need need = Need::required;

    int json_type() const {
        return std::holds_alternative<std::string R::*>(member) || std::holds_alternative<Decimal<R>>(member)
                   ? cJSON_String
                   : cJSON_Number;
    }
};

// The member under `key` whatever its type; null with the ERROR line of a missing key.
const cJSON* find_required(const JsonObject& object, const Key& key,
                           std::source_location where = std::source_location::current());

// The member under `key` if its type is `type`; otherwise null with the line that `need` and `words` ask for.
const cJSON* find_typed(const JsonObject& object, const Key& key, int type, Need need, Words words,
                        std::source_location where);

// Doubles outside the range of the result: INT64_MIN for the signed one; for the unsigned one the bits of the signed
// result below 2^63 and 0 from 2^64.
int64_t truncate_signed(double number);
uint64_t truncate_unsigned(double number);
uint64_t parse_decimal(const char* text);

inline void store(std::string& to, const cJSON& value) { to = value.valuestring; }
inline void store(int32_t& to, const cJSON& value) {
    to = value.valueint;
    observe::stored(&value, int64_t{to});
}
inline void store(uint32_t& to, const cJSON& value) {
    to = static_cast<uint32_t>(value.valueint);
    observe::stored(&value, int64_t{value.valueint});
}
inline void store(int64_t& to, const cJSON& value) {
    to = truncate_signed(value.valuedouble);
    observe::stored(&value, to);
}
inline void store(uint64_t& to, const cJSON& value) {
    to = truncate_unsigned(value.valuedouble);
    observe::stored(&value, to);
}

template <class R>
void store_field(R& record, const Field<R>& field, const cJSON& value) {
    std::visit(
        [&](auto member) {
            if constexpr (std::is_same_v<decltype(member), Decimal<R>>) {
                record.*member.member = parse_decimal(value.valuestring);
                observe::stored(&value, record.*member.member);
            } else if constexpr (std::is_same_v<decltype(member), Widened<R>>) {
                record.*member.member = value.valueint;
                observe::stored(&value, record.*member.member);
            } else {
                store(record.*member, value);
            }
        },
        field.member);
}

// False only if a required key failed.
template <class R>
bool read_field(const JsonObject& object, R& record, const Field<R>& field, Words words,
                std::source_location where = std::source_location::current()) {
    const cJSON* value = find_typed(object, field.key, field.json_type(), field.need, words, where);
    if (value == nullptr) return field.need != Need::required;
    store_field(record, field, *value);
    return true;
}

template <class R>
bool read_fields(const JsonObject& object, R& record, std::span<const Field<std::type_identity_t<R>>> fields,
                 Words words, std::source_location where = std::source_location::current()) {
    for (const Field<R>& field : fields)
        if (!read_field(object, record, field, words, where)) return false;
    return true;
}

}  // namespace zel
