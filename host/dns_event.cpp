#include "dns_event.h"

#include <algorithm>
#include <type_traits>

#include "failure.h"

namespace zel {
namespace {

using rapidjson::Value;

constexpr const char* kProcessKeys[] = {"guid", "path", "md5", "sha256", "cmd", "user", "extra"};
constexpr std::string_view kOtherKeys[] = {"kind",   "variant",    "time",   "head",   "uhead",   "texts",
                                           "pid",    "query_name", "domain", "status", "results", "number",
                                           "shorts", "create_time", "tail",  "longs"};

template <class Number>
void convert(const char* key, const Value& value, Number& out) {
    // A negative number of a signed member and a large one of an unsigned member both pass; what is too wide is cut.
    if (value.IsUint64())
        out = static_cast<Number>(value.GetUint64());
    else if (value.IsInt64())
        out = static_cast<Number>(value.GetInt64());
    else
        throw Failure("\"{}\" of \"dns\" must hold whole numbers", key);
}

void convert(const char* key, const Value& value, const char*& out) {
    if (!value.IsString() && !value.IsNull()) throw Failure("\"{}\" of \"dns\" must hold texts or nulls", key);
    out = value.IsString() ? value.GetString() : nullptr;
}

}  // namespace

DnsEvent::DnsEvent(std::string_view json) {
    document_.Parse<rapidjson::kParseIterativeFlag>(json.data(), json.size());
    if (document_.HasParseError() || !document_.IsObject()) throw Failure("\"dns\" must be an object");
    expect_known_keys();

    native_.uKind = 2;
    read("kind", native_.uKind);
    read("head", native_.ullHead);
    read("time", native_.ullHead[12]);
    read("uhead", native_.uHead);
    read("texts", native_.pszText);
    read("domain", query_name_);
    read("query_name", query_name_);
    read_variant();
}

void DnsEvent::read_variant() {
    const Value* wanted = find("variant");
    if (wanted != nullptr && !wanted->IsBool()) throw Failure("\"variant\" of \"dns\" must be true or false");
    if (wanted != nullptr && !wanted->GetBool()) return;

    if (native_.uKind == 1) {
        read_process(variant1_);
        read_tail(variant1_);
        read("longs", variant1_.uLong);
        native_.pVariant = &variant1_;
    } else if (native_.uKind == 2) {
        read_process(variant2_);
        read("domain", variant2_.pszDomain);
        read("status", variant2_.uDnsStatus);
        read("results", variant2_.pszDnsResults);
        read("number", variant2_.uTail);
        native_.pVariant = &variant2_;
    } else if (native_.uKind == 3) {
        read_tail(variant3_);
        uint32_t longs[1] = {};
        read("longs", longs);
        variant3_.uLong = longs[0];
        native_.pVariant = &variant3_;
    }
}

template <class Variant>
void DnsEvent::read_process(Variant& variant) {
    read("pid", variant.uPid);
    read("create_time", variant.llCreateTime);
    for (size_t i = 0; i < std::size(kProcessKeys); ++i) read(kProcessKeys[i], variant.pszProcess[i]);
}

template <class Variant>
void DnsEvent::read_tail(Variant& variant) {
    read("tail", variant.pszTail);
    read("shorts", variant.uShort);
}

void DnsEvent::expect_known_keys() const {
    for (const auto& member : document_.GetObject()) {
        const std::string_view key(member.name.GetString(), member.name.GetStringLength());
        if (std::ranges::find(kProcessKeys, key) == std::end(kProcessKeys) &&
            std::ranges::find(kOtherKeys, key) == std::end(kOtherKeys))
            throw Failure("\"dns\" has no field \"{}\"", key);
    }
}

const Value* DnsEvent::find(const char* key) const {
    const auto found = document_.FindMember(key);
    return found == document_.MemberEnd() ? nullptr : &found->value;
}

template <class Number>
void DnsEvent::read(const char* key, Number& out) const {
    if (const Value* value = find(key)) convert(key, *value, out);
}

void DnsEvent::read(const char* key, const char*& out) const {
    if (const Value* value = find(key)) convert(key, *value, out);
}

template <class Item, size_t count>
void DnsEvent::read(const char* key, Item (&out)[count]) const {
    const Value* list = find(key);
    if (list == nullptr) return;
    if (!list->IsArray() || list->Size() > count)
        throw Failure("\"{}\" of \"dns\" must be a list of at most {} items", key, count);
    for (rapidjson::SizeType i = 0; i < list->Size(); ++i) convert(key, (*list)[i], out[i]);
}

}  // namespace zel
