#include <gtest/gtest.h>

#include "decode/document.h"
#include "decode/json_fields.h"

using zel_test::Json;

namespace {

struct Numbers {
    uint32_t u32;
    int32_t i32;
    int64_t i64;
    uint64_t u64;
    int64_t widened;
};
constexpr zel::Field<Numbers> kNumbers[] = {
    {"n", &Numbers::u32}, {"n", &Numbers::i32}, {"n", &Numbers::i64}, {"n", &Numbers::u64}, {"n", zel::Widened{&Numbers::widened}},
};
constexpr int64_t kLowest = std::numeric_limits<int64_t>::min();
constexpr uint64_t kTop = 0x8000000000000000;

TEST(Fields, TakeNumbersByTheirKind) {
    const struct {
        int line;
        const char* json;
        Numbers expected;
    } rows[] = {
        {__LINE__, "7", {7, 7, 7, 7, 7}},
        {__LINE__, "-1", {0xFFFFFFFF, -1, -1, 0xFFFFFFFFFFFFFFFF, -1}},
        {__LINE__, "3.9", {3, 3, 3, 3, 3}},
        {__LINE__, "-3.9", {0xFFFFFFFD, -3, -3, 0xFFFFFFFFFFFFFFFD, -3}},
        {__LINE__, "4294967295", {0x7FFFFFFF, 0x7FFFFFFF, 4294967295, 4294967295, 0x7FFFFFFF}},
        {__LINE__, "-4294967295", {0x80000000, -0x7FFFFFFF - 1, -4294967295, 0xFFFFFFFF00000001, -0x80000000LL}},
        {__LINE__, "9007199254740993", {0x7FFFFFFF, 0x7FFFFFFF, 9007199254740992, 9007199254740992, 0x7FFFFFFF}},
        {__LINE__, "9223372036854775808", {0x7FFFFFFF, 0x7FFFFFFF, kLowest, kTop, 0x7FFFFFFF}},
        {__LINE__, "18446744073709549568", {0x7FFFFFFF, 0x7FFFFFFF, kLowest, 0xFFFFFFFFFFFFF800, 0x7FFFFFFF}},
        {__LINE__, "18446744073709551616", {0x7FFFFFFF, 0x7FFFFFFF, kLowest, 0, 0x7FFFFFFF}},
        {__LINE__, "1e999", {0x7FFFFFFF, 0x7FFFFFFF, kLowest, 0, 0x7FFFFFFF}},
        {__LINE__, "-1e999", {0x80000000, -0x7FFFFFFF - 1, kLowest, kTop, -0x80000000LL}},
    };
    for (const auto& row : rows) {
        const Json json(std::string("{\"n\":") + row.json + "}");
        Numbers got{};
        ASSERT_TRUE(zel::read_fields(json.node(), got, kNumbers, zel::Words::not_type)) << row.line;
        EXPECT_TRUE(got.u32 == row.expected.u32 && got.i32 == row.expected.i32 && got.i64 == row.expected.i64 &&
                    got.u64 == row.expected.u64 && got.widened == row.expected.widened)
            << row.line;
    }
}

TEST(Fields, TakeDecimalTextAsFarAsItGoes) {
    const struct {
        int line;
        const char* text;
        uint64_t expected;
    } rows[] = {
        {__LINE__, "18446744073709551615", 0xFFFFFFFFFFFFFFFF}, {__LINE__, "99999999999999999999", 0xFFFFFFFFFFFFFFFF},
        {__LINE__, "9007199254740993", 9007199254740993},       {__LINE__, " 12x", 12},
        {__LINE__, "0x10", 0},                                  {__LINE__, "none", 0},
        {__LINE__, "-1", 0xFFFFFFFFFFFFFFFF},                   {__LINE__, "", 0},
    };
    for (const auto& row : rows) EXPECT_EQ(zel::parse_decimal(row.text), row.expected) << row.line;
}

// Short names from few letters: many doubles, many collisions, and objects both below and above the size of the index.
TEST(JsonObject, FindsWhatCjsonFinds) {
    uint32_t seed = 1;
    const auto random = [&seed](uint32_t below) { return (seed = seed * 1664525 + 1013904223) / 65536 % below; };
    const auto name = [&] {
        std::string text;
        for (uint32_t i = random(4); i > 0; --i) text += "abAB_`@Z"[random(8)];
        return text;
    };
    for (int round = 0; round < 200; ++round) {
        std::string text = "{\"first\":0";
        for (uint32_t i = random(120); i > 0; --i) text += ",\"" + name() + "\":0";
        const Json json(text + "}");
        const zel::JsonObject object(json.node());
        for (int i = 0; i < 50; ++i) {
            const std::string key = name();
            ASSERT_EQ(object.find(key.c_str()), cJSON_GetObjectItem(json.node(), key.c_str())) << key << " in " << text;
        }
    }
    for (const char* no_object : {"[1,2]", "\"first\"", "5", "null"})
        EXPECT_EQ(zel::JsonObject(Json(no_object).node()).find("first"), nullptr) << no_object;
}

}  // namespace
