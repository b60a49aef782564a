#include <algorithm>
#include <set>

#include "check/key_words.h"
#include "check/zelcheck_host.h"
#include "decode/document.h"
#include "decode/event_types.h"

namespace zel_test {
namespace {

// Rows in the notation of the lists; what holds other objects or texts is left out, for the lists do not have it.
std::string list_of(const std::string& object, int32_t alert_type) {
    std::vector<std::string> words;
    for (const zel::KeyTable& table : zel::document_key_tables()) {
        if (table.object != object || (table.holds_for != nullptr && !table.holds_for(alert_type))) continue;
        for (const zel::KeyRow& row : table.keys) {
            if (row.kind >= zel::ValueKind::texts) continue;
            const char* const kind = row.kind == zel::ValueKind::text ? "S" : "N";
            words.push_back(std::string(row.key) + ':' + kind + std::array{"", "O", "W", "i"}[size_t(row.need)]);
        }
    }
    return joined(words, " ");
}

TEST(KeyRows, SayWhatTheDecoderReads) {
    const std::string every = "alert_type:N Guid:S " + kRootKeys;
    EXPECT_EQ(list_of("document", 3), every);
    EXPECT_EQ(list_of("document", 1), every + " malicious_key:S");
    EXPECT_EQ(list_of("document", 2), every + ' ' + kContainerKeys);
    EXPECT_EQ(list_of("rule", 3), kRuleKeys);
    EXPECT_EQ(list_of("event", 3), kSubjectKeys);
}

TEST(KeyRows, TellNumbersApart) {
    using enum zel::ValueKind;
    const std::tuple<uint32_t, std::string_view, zel::ValueKind> rows[] = {
        {2, "ExitCode", int32}, {3, "StartAddress", decimal_text}, {9, "PostTime", int64}, {14, "DstPort", uint32},
        {38, "Inode", uint64},  {22, "ServiceStartType", int32}};
    for (const auto& [type, key, kind] : rows) {
        const auto keys = zel::find_event_type(type)->keys;
        const auto row = std::ranges::find(keys, key, &zel::KeyRow::key);
        ASSERT_NE(row, keys.end()) << key;
        EXPECT_EQ(row->kind, kind) << key;
    }
}

TEST(KeyRows, HaveWordsAndNoWordsAreLeftOver) {
    const zelcheck_key_table* tables = nullptr;
    size_t count = 0;
    ASSERT_EQ(zelcheck_keys(&tables, &count), 0);
    std::set<const zel::check::KeyWords*> used;
    const auto use = [&](const zelcheck_key_table& table, const char* key) {
        const auto* const row = zel::check::find_key_words(table.object, table.event_type, key);
        EXPECT_NE(row, nullptr) << table.object << ' ' << table.event_type << " '" << key << "' has no words";
        used.insert(row);
    };
    for (const zelcheck_key_table& table : std::span(tables, count)) {
        use(table, "");
        for (const zelcheck_key& key : std::span(table.keys, table.key_count)) {
            use(table, key.name);
            const auto names_it = [&](const zelcheck_key_table& each) {
                return each.object == std::string(key.members);
            };
            EXPECT_EQ(key.members != nullptr, key.kind >= ZELCHECK_OBJECT) << key.name;
            if (key.members == nullptr) continue;
            EXPECT_TRUE(std::any_of(tables, tables + count, names_it)) << key.members;
        }
    }
    for (const zel::check::KeyWords& row : zel::check::key_words())
        EXPECT_TRUE(used.contains(&row)) << row.object << " has no '" << row.key << "'";
}

}  // namespace
}  // namespace zel_test
