#include "host/lib/dns_event.h"

#include <algorithm>
#include <charconv>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

using Member = JsonText::Member;
using Type = JsonText::Type;

// All digits of a number, and nothing else.
// A text such as "12x" is refused: all of it must be the number.
template <class Number>
bool parse_whole(std::string_view digits, Number& out) {
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), out);
    return result.ec == std::errc() && result.ptr == digits.data() + digits.size();
}

// A number that is too wide for its member is cut, so that any bits can be had.
template <class Number>
void read(const Member& member, Number& out) {
    uint64_t large = 0;
    int64_t negative = 0;
    // Numbers without a sign have the larger range and are tried first.
    if (parse_whole(member.raw, large))
        out = static_cast<Number>(large);
    else if (parse_whole(member.raw, negative))
        out = static_cast<Number>(negative);
    else
        throw Failure("a whole number is wanted");
}

// Only the two words, so that 0 and 1 are not taken for them.
template <>
void read(const Member& member, bool& out) {
    if (member.type != Type::boolean) throw Failure("true or false is wanted");
    out = member.raw == "true";
}

// A pointer into the member, which the event keeps.
template <>
void read(const Member& member, const char*& out) {
    if (member.type != Type::string && member.type != Type::null) throw Failure("a text or null is wanted");
    out = member.type == Type::string ? member.text.c_str() : nullptr;
}

}  // namespace

// Items that are not given stay 0 or null. The list is kept, because texts point into it.
// Each list is a JSON text of its own. Its members are read like those of the record.
template <class Item, size_t count>
void DnsEvent::read_list(const Member& member, Item (&out)[count]) {
    const auto& items = lists_.emplace_back(member.raw, Type::array).members();
    // The record has a fixed number of places.
    if (items.size() > count) throw Failure("a list of at most {} items is wanted", count);
    for (size_t i = 0; i < items.size(); ++i) read(items[i], out[i]);
}

// One row a key, in the order of the comment in the header.
const DnsEvent::Field DnsEvent::kFields[] = {
    {"kind", [](DnsEvent& e, const Member& m) { read(m, e.native_.uKind); }},
    {"variant", [](DnsEvent& e, const Member& m) { read(m, e.with_variant_); }},
    {"head", [](DnsEvent& e, const Member& m) { e.read_list(m, e.native_.ullHead); }},
    {"time", [](DnsEvent& e, const Member& m) { read(m, e.native_.ullHead[12]); }},
    {"uhead", [](DnsEvent& e, const Member& m) { e.read_list(m, e.native_.uHead); }},
    {"texts", [](DnsEvent& e, const Member& m) { e.read_list(m, e.native_.pszText); }},
    {"pid", [](DnsEvent& e, const Member& m) { read(m, e.two_.uPid); }},
    {"create_time", [](DnsEvent& e, const Member& m) { read(m, e.two_.llCreateTime); }},
    {"guid", [](DnsEvent& e, const Member& m) { read(m, e.two_.pszProcess[0]); }},
    {"path", [](DnsEvent& e, const Member& m) { read(m, e.two_.pszProcess[1]); }},
    {"md5", [](DnsEvent& e, const Member& m) { read(m, e.two_.pszProcess[2]); }},
    {"sha256", [](DnsEvent& e, const Member& m) { read(m, e.two_.pszProcess[3]); }},
    {"cmd", [](DnsEvent& e, const Member& m) { read(m, e.two_.pszProcess[4]); }},
    {"user", [](DnsEvent& e, const Member& m) { read(m, e.two_.pszProcess[5]); }},
    {"extra", [](DnsEvent& e, const Member& m) { read(m, e.two_.pszProcess[6]); }},
    {"domain", [](DnsEvent& e, const Member& m) { read(m, e.two_.pszDomain); }},
    {"query_name", [](DnsEvent& e, const Member& m) { read(m, e.query_name_); }},
    {"status", [](DnsEvent& e, const Member& m) { read(m, e.two_.uDnsStatus); }},
    {"results", [](DnsEvent& e, const Member& m) { read(m, e.two_.pszDnsResults); }},
    {"number", [](DnsEvent& e, const Member& m) { read(m, e.two_.uTail); }},
    {"tail", [](DnsEvent& e, const Member& m) { e.read_list(m, e.one_.pszTail); }},
    {"shorts", [](DnsEvent& e, const Member& m) { e.read_list(m, e.one_.uShort); }},
    {"longs", [](DnsEvent& e, const Member& m) { e.read_list(m, e.one_.uLong); }},
};

DnsEvent::DnsEvent(std::string_view json) : fields_(json) {
    for (const Member& member : fields_.members()) {
        // A key that is misspelt would otherwise leave its member at 0.
        if (std::ranges::find(kFields, member.key, &Field::key) != std::end(kFields)) continue;
        std::vector<std::string_view> known;
        for (const Field& field : kFields) known.push_back(field.key);
        throw Failure("\"dns\" has no field \"{}\"; known: {}", member.key, fmt::join(known, ", "));
    }
    // In the order of the table: the time goes over the head's.
    // The kind that a line without one has.
    native_.uKind = 2;
    for (const Field& field : kFields) {
        const Member* member = fields_.find(field.key);
        if (member == nullptr) continue;
        try {
            field.read(*this, *member);
        } catch (const Failure& e) {
            // The message names the key, since the value alone says little.
            throw Failure("\"{}\" of \"dns\": {}", field.key, e.what());
        }
    }
    if (fields_.find("query_name") == nullptr) query_name_ = two_.pszDomain;

    // The keys fill the second variant; the first and the third share some of its members.
    one_.uPid = two_.uPid;
    one_.llCreateTime = two_.llCreateTime;
    std::ranges::copy(two_.pszProcess, one_.pszProcess);
    std::ranges::copy(one_.pszTail, three_.pszTail);
    std::ranges::copy(one_.uShort, three_.uShort);
    three_.uLong = one_.uLong[0];
    // A kind without a variant record leaves the pointer null.
    const void* const variants[] = {nullptr, &one_, &two_, &three_};
    if (with_variant_ && native_.uKind < std::size(variants)) native_.pVariant = variants[native_.uKind];
}

}  // namespace zelhost
