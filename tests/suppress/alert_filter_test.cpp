// The repeat filter: its key, and how long it remembers one.
#include "suppress/alert_filter.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

using ResHdlAlert::AlertFilter;
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

TEST(AlertFilter, MakesItsKeyOfRulesAndImages) {
    const std::pair<Rules, std::string> rows[] = {
        {{}, ""},
        {{{"", {}}}, ""},
        {{{"r", {}}}, "r"},
        {{{"r2", {"/b", "/a", "/b"}}, {"r1", {"/c"}}}, "r1/cr2/a/b"},
        {{{"r", {"/first"}}, {"r", {"/second"}}}, "r/first"},
        {{{"\xff", {}}, {"a", {}}, {"B", {}}}, "Ba\xff"},
    };
    for (const auto& [rules, key] : rows) EXPECT_EQ(AlertFilter::cal_alert_key(alert(rules)), key);
}

TEST(AlertFilter, ForgetsEverythingWhenAMinuteHasPassedSinceItLastDid) {
    uint64_t now = 1'000'000;
    AlertFilter filter(now);
    const auto repeat_after = [&](uint64_t ms, const Rules& rules) {
        now += ms;
        return filter.CheckRepeat(alert(rules), now);
    };
    const Rules first = {{"r", {"/a"}}}, second = {{"r", {"/a", "/b"}}};
    EXPECT_FALSE(repeat_after(59'000, first));
    EXPECT_TRUE(repeat_after(999, first));
    EXPECT_FALSE(repeat_after(1, first));
    EXPECT_TRUE(repeat_after(59'999, first));
    EXPECT_FALSE(repeat_after(0, second));
    EXPECT_FALSE(repeat_after(1, first));
    filter.ForgetLast();
    EXPECT_FALSE(repeat_after(0, first));
    EXPECT_FALSE(repeat_after(0, {}));  // without a key nothing is a repeat
    EXPECT_FALSE(repeat_after(0, {}));
    EXPECT_EQ(zel_test::LogCapture::get().take_text(),
              "D repeat alert event! guid: G\nI clean alert event cache once.\nD repeat alert event! guid: G\n"
              "I clean alert event cache once.\nE cal_alert_key failed!\nE cal_alert_key failed!\n");
}

}  // namespace
