#include "dns_event.h"

#include <algorithm>
#include <array>

#include "failure.h"

namespace zel {
namespace {

using rapidjson::Value;

// A number that is too wide for its member is cut, so that any bits can be had.
template <class Number>
void read(const Value& value, Number& out) {
    if (value.IsUint64())
        out = static_cast<Number>(value.GetUint64());
    else if (value.IsInt64())
        out = static_cast<Number>(value.GetInt64());
    else
        throw Failure("a whole number is wanted");
}

template <>
void read(const Value& value, bool& out) {
    if (!value.IsBool()) throw Failure("true or false is wanted");
    out = value.GetBool();
}

template <>
void read(const Value& value, const char*& out) {
    if (!value.IsString() && !value.IsNull()) throw Failure("a text or null is wanted");
    out = value.IsString() ? value.GetString() : nullptr;
}

template <class Item, size_t count>
void read(const Value& list, Item (&out)[count]) {
    if (!list.IsArray() || list.Size() > count) throw Failure("a list of at most {} items is wanted", count);
    for (rapidjson::SizeType i = 0; i < list.Size(); ++i) read(list[i], out[i]);
}

}  // namespace

const DnsEvent::Field DnsEvent::kFields[] = {
    {"kind", [](DnsEvent& e, const Value& v) { read(v, e.native_.uKind); }},
    {"variant", [](DnsEvent& e, const Value& v) { read(v, e.with_variant_); }},
    {"head", [](DnsEvent& e, const Value& v) { read(v, e.native_.ullHead); }},
    {"time", [](DnsEvent& e, const Value& v) { read(v, e.native_.ullHead[12]); }},
    {"uhead", [](DnsEvent& e, const Value& v) { read(v, e.native_.uHead); }},
    {"texts", [](DnsEvent& e, const Value& v) { read(v, e.native_.pszText); }},
    {"pid", [](DnsEvent& e, const Value& v) { read(v, e.two_.uPid); }},
    {"create_time", [](DnsEvent& e, const Value& v) { read(v, e.two_.llCreateTime); }},
    {"guid", [](DnsEvent& e, const Value& v) { read(v, e.two_.pszProcess[0]); }},
    {"path", [](DnsEvent& e, const Value& v) { read(v, e.two_.pszProcess[1]); }},
    {"md5", [](DnsEvent& e, const Value& v) { read(v, e.two_.pszProcess[2]); }},
    {"sha256", [](DnsEvent& e, const Value& v) { read(v, e.two_.pszProcess[3]); }},
    {"cmd", [](DnsEvent& e, const Value& v) { read(v, e.two_.pszProcess[4]); }},
    {"user", [](DnsEvent& e, const Value& v) { read(v, e.two_.pszProcess[5]); }},
    {"extra", [](DnsEvent& e, const Value& v) { read(v, e.two_.pszProcess[6]); }},
    {"domain", [](DnsEvent& e, const Value& v) { read(v, e.two_.pszDomain); }},
    {"query_name", [](DnsEvent& e, const Value& v) { read(v, e.query_name_); }},
    {"status", [](DnsEvent& e, const Value& v) { read(v, e.two_.uDnsStatus); }},
    {"results", [](DnsEvent& e, const Value& v) { read(v, e.two_.pszDnsResults); }},
    {"number", [](DnsEvent& e, const Value& v) { read(v, e.two_.uTail); }},
    {"tail", [](DnsEvent& e, const Value& v) { read(v, e.one_.pszTail); }},
    {"shorts", [](DnsEvent& e, const Value& v) { read(v, e.one_.uShort); }},
    {"longs", [](DnsEvent& e, const Value& v) { read(v, e.one_.uLong); }},
};

DnsEvent::DnsEvent(std::string_view json) {
    document_.Parse<rapidjson::kParseIterativeFlag>(json.data(), json.size());
    if (document_.HasParseError() || !document_.IsObject()) throw Failure("\"dns\" must be an object");
    for (const auto& member : document_.GetObject()) {
        const std::string_view key(member.name.GetString(), member.name.GetStringLength());
        if (std::ranges::find(kFields, key, &Field::key) == std::end(kFields))
            throw Failure("\"dns\" has no field \"{}\"", key);
    }
    // In the order of the table: the time goes over the head's.
    native_.uKind = 2;
    for (const Field& field : kFields) {
        const auto found = document_.FindMember(Value(rapidjson::StringRef(field.key.data(), field.key.size())));
        if (found == document_.MemberEnd()) continue;
        try {
            field.read(*this, found->value);
        } catch (const Failure& e) {
            throw Failure("\"{}\" of \"dns\": {}", field.key, e.what());
        }
    }
    if (!document_.HasMember("query_name")) query_name_ = two_.pszDomain;

    one_.uPid = two_.uPid;
    one_.llCreateTime = two_.llCreateTime;
    std::ranges::copy(two_.pszProcess, one_.pszProcess);
    std::ranges::copy(one_.pszTail, three_.pszTail);
    std::ranges::copy(one_.uShort, three_.uShort);
    three_.uLong = one_.uLong[0];
    const void* const variants[] = {nullptr, &one_, &two_, &three_};
    if (with_variant_ && native_.uKind < std::size(variants)) native_.pVariant = variants[native_.uKind];
}

}  // namespace zel
