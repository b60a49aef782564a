#include "decode/event_types.h"

#include <new>

#include "decode/document.h"
#include "decode/event_records.h"

namespace {
bool g_no_memory = false;
}  // namespace

// The form of new that a decoder uses for its record. It wins over the library's.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    if (g_no_memory) return nullptr;
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace zel_test {
namespace {

struct Row {
    uint32_t type;
    const char* keys;
    std::string (*values)(const zel::EventPrivate& record);  // its members in the order of the keys
};

// clang-format off
#define ROW(type, R, keys, ...) \
    {type, keys, [](const zel::EventPrivate& p) { const R& r = *p.as<R>(); return dump(__VA_ARGS__); }}
const Row kRows[] = {
    ROW(30, ST_PROCESS_TAMPERING_INFO, "ObjectPid:N ObjectCreateTime:N ObjectImage:S ObjectCmd:S TamperedImage:S "
        "TamperType:N", r.uPid, r.llCreateTime, r.strImage, r.strCmd, r.strTamperedImage, r.uTamperType),
    ROW(31, ST_DLL_INJECT_INFO, "ObjectPid:N ObjectTid:N ObjectCreateTime:N ObjectImage:S ObjectCmd:S "
        "ObjectThreadStartAddr:S InjectedDllPath:S",
        r.uPid, r.uTid, r.llCreateTime, r.strImage, r.strCmd, r.strThreadStartAddr, r.strInjectedDllPath),
    ROW(32, ST_REFLECTIVE_INJECT_INFO, "ObjectPid:N ObjectTid:N ObjectCreateTime:N ObjectImage:S ObjectCmd:S "
        "ObjectThreadStartAddr:S InjectedDllPath:SW InjectDllCreateTime:NW",
        r.uPid, r.uTid, r.llCreateTime, r.strImage, r.strCmd, r.strThreadStartAddr, r.strInjectedDllPath,
        r.llInjectDllCreateTime),
    ROW(33, ST_INJECT_REPORT_INFO, "ObjectPid:N ObjectImage:S ObjectCreateTime:N InjectType:N",
        r.uPid, r.strImage, r.llCreateTime, r.uInjectType),
};
// clang-format on

TEST(EventTypes, WithoutAPlaceInMessagesAreDecodedAndFreed) {
    for (const Row& row : kRows) {
        check_keys(row.keys, zel::Words::not_type, "", [&row](const std::string& text, const std::string& values) {
            const Tree json = parse('{' + text + '}');
            ST_RAW_EVENT stEvent;
            stEvent.uType = row.type;
            EXPECT_EQ(zel::find_event_type(row.type)->decode(json.get(), stEvent), !values.empty()) << row.type;
            EXPECT_EQ(stEvent.pPrivate ? row.values(stEvent.pPrivate) : "", values) << row.type;
            const auto process = object_process(stEvent);
            EXPECT_EQ(process.has_value(), !values.empty()) << row.type;
            if (process.has_value()) {
                for (const std::string& part :
                     {dump(process->uPid), dump(process->llCreateTime), dump(*process->pstrImage)})
                    EXPECT_NE((' ' + values).find(' ' + part), std::string::npos) << row.type;
            }
            FreeEventPrivate(stEvent);
            FreeEventPrivate(stEvent);
            EXPECT_FALSE(stEvent.pPrivate);
            return take_log();
        });
    }
}

TEST(EventTypes, TheTimeOfAnInjectedLibraryEndsAt32Bits) {
    const Row& row = kRows[2];
    const Tree json = parse(R"({"InjectDllCreateTime":4294967296,)" + members(row.keys) + '}');
    ST_RAW_EVENT stEvent;
    EXPECT_TRUE(zel::find_event_type(row.type)->decode(json.get(), stEvent));
    EXPECT_TRUE(row.values(stEvent.pPrivate).ends_with(" 2147483647 "));
}

TEST(EventTypes, AreRefusedWithoutMemoryForTheRecord) {
    const Tree json = parse("{}");
    for (uint32_t type = 0; type < 64; ++type) {
        const auto* const row = zel::find_event_type(type);
        if (row == nullptr) continue;
        ST_RAW_EVENT stEvent;
        stEvent.uType = type;
        g_no_memory = true;
        EXPECT_FALSE(row->decode(json.get(), stEvent)) << type;
        g_no_memory = false;
        EXPECT_FALSE(stEvent.pPrivate) << type;
        const std::string log = take_log();
        EXPECT_TRUE(log.starts_with("E new(std::nothrow)") && log.ends_with(" error")) << type << ": " << log;
    }
}

TEST(EventTypes, AnEventOfUnknownTypeKeepsItsRecord) {
    for (const uint32_t type : {0U, 1000U, 0xFFFFFFFFU}) {
        ST_RAW_EVENT stEvent;
        stEvent.uType = type;
        stEvent.pPrivate = zel::EventPrivate(std::make_unique<ST_FILE_DELETE>());
        FreeEventPrivate(stEvent);
        EXPECT_TRUE(stEvent.pPrivate);
        EXPECT_EQ(stEvent.pPrivate.as<ST_PROCESS_CREATE>(), nullptr) << "another record";
        EXPECT_FALSE(object_process(stEvent).has_value());
        EXPECT_EQ(take_log(), "E The event is unknown.event:" + std::to_string(type));
    }
}

TEST(Fields, TruncateNumbersAndMarkThoseOutsideTheRange) {
    constexpr int64_t kLowest = INT64_MIN;
    constexpr uint64_t k2To63 = 1ULL << 63;
    const std::tuple<double, int64_t, uint64_t> rows[] = {
        {-3.9, -3, UINT64_MAX - 2},
        {9007199254740993.0, 9007199254740992, 9007199254740992},  // 2^53 + 1
        {0x1.fffffffffffffp62, 9223372036854774784, 9223372036854774784},
        {0x1p63, kLowest, k2To63},
        {-0x1p63, kLowest, k2To63},
        {-0x1.0000000000001p63, kLowest, k2To63},
        {0x1.fffffffffffffp63, kLowest, 18446744073709549568U},
        {0x1p64, kLowest, 0},
    };
    for (const auto& [number, as_signed, as_unsigned] : rows) {
        EXPECT_EQ(zel::truncate_signed(number), as_signed) << number;
        EXPECT_EQ(zel::truncate_unsigned(number), as_unsigned) << number;
    }
}

TEST(Fields, ReadTextsAsDecimalNumbers) {
    const std::pair<const char*, uint64_t> rows[] = {
        {"18446744073709551615", UINT64_MAX}, {" 12x", 12}, {"010", 10}, {"0x10", 0}, {"-1", UINT64_MAX}, {"", 0}};
    for (const auto& [text, number] : rows) EXPECT_EQ(zel::parse_decimal(text), number) << text;
}

void expect_as_cjson(const std::string& object, const std::string& key) {
    const Tree json = parse(object);
    ASSERT_EQ(zel::JsonObject(json.get()).find(key.c_str()), cJSON_GetObjectItem(json.get(), key.c_str()))
        << key << " in " << object;
}

TEST(JsonObject, FindsEachMemberAndTheFirstOfEqualNames) {
    for (const size_t size : {1U, 63U, 64U, 65U, 66U}) {
        std::vector<std::string> parts;
        for (size_t i = 0; i < size; ++i) parts.push_back("\"k" + std::to_string(i) + "\":0");
        const std::string all = joined(parts);
        for (size_t i = 0; i <= size; ++i) {
            const std::string number = std::to_string(i);
            expect_as_cjson('{' + all + '}', "K" + number);
            expect_as_cjson('{' + all + ",\"K" + number + "\":1}", "k" + number);
        }
    }
}

TEST(JsonObject, ComparesNamesAsCjsonDoes) {
    for (char have = ' '; have <= '~'; ++have)
        for (char want = ' '; want <= '~'; ++want)
            if (have != '"' && have != '\\') expect_as_cjson({'{', '"', 'k', have, '"', ':', '0', '}'}, {'k', want});
}

}  // namespace
}  // namespace zel_test
