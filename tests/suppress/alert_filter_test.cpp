#include "suppress/alert_filter.h"

#include <gmock/gmock.h>

#include "support/fake_clock.h"
#include "support/log_capture.h"

namespace {

using ResHdlAlert::AlertFilter;
using zel_test::LogLine;
using Rules = std::vector<std::pair<std::string, std::vector<std::string>>>;  // ids with the images of their events

ST_BUF_DATA alert(const Rules& rules) {
    ST_BUF_DATA data;
    data.strGuid = "G";
    for (const auto& [id, images] : rules) {
        data.vecRule.emplace_back().strRuleId = id;
        for (const std::string& image : images) data.vecRule.back().vecEvent.emplace_back().strImage = image;
    }
    return data;
}

TEST(AlertFilter, makes_its_key_of_rules_and_images) {
    const struct {
        int line;
        Rules rules;
        std::string key;
    } rows[] = {
        {__LINE__, {{"", {}}}, ""},
        {__LINE__, {{"r", {}}}, "r"},
        {__LINE__, {{"r2", {"/b", "/a", "/b"}}, {"r1", {"/c"}}}, "r1/cr2/a/b"},
        {__LINE__, {{"r", {"/first"}}, {"r", {"/second"}}}, "r/first"},
        {__LINE__, {{"\xff", {}}, {"a", {}}, {"B", {}}}, "Ba\xff"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(AlertFilter::cal_alert_key(alert(row.rules)), row.key) << "line " << row.line;
}

TEST(AlertFilter, forgets_everything_when_a_minute_has_passed_since_it_last_did) {
    AlertFilter filter;
    const uint64_t start = zel_test::tick_ms;
    const struct {
        int line;
        uint64_t ms;  // since the start
        Rules rules;
        bool repeat;
    } rows[] = {
        {__LINE__, 59'000, {{"r", {"/a"}}}, false},
        {__LINE__, 59'999, {{"r", {"/a"}}}, true},
        {__LINE__, 60'000, {{"r", {"/a"}}}, false},
        {__LINE__, 119'999, {{"r", {"/a"}}}, true},
        {__LINE__, 119'999, {{"r", {"/a", "/b"}}}, false},
        {__LINE__, 120'000, {{"r", {"/a"}}}, false},
        {__LINE__, 120'000, {}, false},
        {__LINE__, 120'000, {}, false},
    };
    for (const auto& row : rows) {
        zel_test::tick_ms = start + row.ms;
        EXPECT_EQ(filter.CheckRepeat(alert(row.rules)), row.repeat) << "line " << row.line;
    }
    const LogLine cleaned{ZEL_LOG_INFO, "clean alert event cache once."},
        repeat{ZEL_LOG_DEBUG, "repeat alert event! guid: G"};
    const LogLine keyless{ZEL_LOG_ERROR, "cal_alert_key failed!"};
    EXPECT_THAT(zel_test::LogCapture::get().take(),
                testing::ElementsAre(repeat, cleaned, repeat, cleaned, keyless, keyless));
}

}  // namespace
