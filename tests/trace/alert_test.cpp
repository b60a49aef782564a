#include "decode/alert_types.h"
#include "decode/event_records.h"
#include "trace/built.h"

using namespace zel_test;
using testing::EndsWith, testing::HasSubstr;

namespace {

constexpr uint32_t kMinus1 = 0xFFFFFFFF;

// An alert with one rule with one event. Each number has a value of its own; the texts are t0, t1 and so on in the
// order in which they are checked.
struct Alert {
    ST_BUF_DATA data;
    ST_BUF_DATA& d = data;
    ST_RULE& r = data.vecRule.emplace_back();
    ST_RAW_EVENT& e = r.vecEvent.emplace_back();
    ST_FILE_DELETE& object = *new ST_FILE_DELETE;
    // clang-format off
    const std::vector<std::string*> texts = {
        &d.strGuid, &d.strBestRuleDesc, &d.strScenarioId, &d.strBestRuleName, &d.strEngineVer,              // 0 to 4
        &d.strEngineRuleVer, &d.strExtendedMsg, &d.strContainerId, &d.strRepository, &d.strMounts,          // 5 to 9
        &d.strUser, &d.strNamespace, &d.strImageId, &d.strImageTag, &d.strContainerName,                    // 10 to 14
        &d.strCapability, &d.strPortsBinding, &d.strImageName, &r.strRuleId, &r.strMitreId,                 // 15 to 19
        &r.strInternalId, &r.strRuleDesc, &r.strVersion, &r.strRuleName, &r.strRiskTag,                     // 20 to 24
        &e.strImage, &e.strCmd, &e.strUser, &e.strGuid, &e.strLoginName, &e.strSshIp, &e.strMd5,            // 25 to 31
        &e.strSha256, &object.strFilePath};
    // clang-format on

    Alert() {
        for (size_t i = 0; i < texts.size(); ++i) *texts[i] = 't' + std::to_string(i);
        d.nAlertType = alert_type::ioa;
        d.uCount = d.uThreatScore = e.uVersion = e.uPid = e.uTid = kMinus1;
        d.llHash = -2;
        d.nContainerInitPid = -3;
        d.uTotalScore = 2;
        d.uVerifyScore = 3;
        d.uVerifyTotalScore = 4;
        d.llEarliestOpTime = 10;
        d.llLatestOpTime = 20;
        d.strRiskLevel = "HIGH";
        d.strMaliciousKey = "not sent";
        r.nScore = -5;
        r.nConfidence = 60;
        r.strStatus = "trigger";
        r.vecTags = {"g1", "g2"};
        e.uType = 7;
        e.llCreateTime = 30;
        e.llOpTime = 40;
        e.vecHighlight = {"h1", "h2"};
        e.vecSubHighlight = {"s1", "s2"};
        e.pPrivate = zel::EventPrivate(std::unique_ptr<ST_FILE_DELETE>(&object));
    }
};

TEST(Alert, EveryMemberReachesItsField) {
    Alert alert;
    const Built built = build(alert.data, true);
    EXPECT_EQ(
        built.shown,
        "1=me 7=4 8={1=2 2=t0 3=4 4=-1 5=2 6=3 7=4 8=20 9=10 10=t1 11={1=t18 2=t19 3=t20 4=-5 5=t21 6=4 7=t22 "
        "8={1=-1 2=6 3=40 4={2=-1 3=t28 4=t25 5=t31 6=t32 8=t26 9=t27 13=30 14=-1 19=t29 20=t30} 11={2=t33} "
        "24={1=h1} 24={1=h2} 34={1=s1} 34={1=s2}} 9=t23 10=t24 11=60 13={1=g1} 13={1=g2}} "
        "12=t2 15=-2 16=t3 17=-1 18=t6 19=t4 20=t5 23=t7 24=t8 25=t9 26=t10 27=t11 28=t12 29=t13 30=t14 31=t15 32=t16 "
        "33=t17 34=-3} 16={1=g1} 16={1=g2}");
    EXPECT_EQ(built.lines, Lines{});
    EXPECT_EQ(built.nRiskLevel, 4);
    EXPECT_EQ(built.nProcessCount, 1);
}

TEST(Alert, WhatIsEmptyOrUnknownIsNoFailure) {
    ST_BUF_DATA data;
    data.strRiskLevel = "Urgent";
    data.vecRule.resize(2);
    data.vecRule[1].strStatus = "Trigger ";
    EXPECT_EQ(build(data, false, event_id::mem_detect).shown, "1=me 8={11={} 11={}} 16={1=MemDection}");
    Alert alert;
    EXPECT_THAT(build(alert.data, false, event_id::memory_trojan).shown, EndsWith(" 34=-3}")) << "no tags";
    agent_id = "";
    EXPECT_EQ(build(data).shown, "8={11={} 11={}}");
    agent_id = nullptr;
    EXPECT_EQ(build(data).shown, "1=0 8={11={} 11={}}");
    EXPECT_EQ(build(data).lines, errors({"get agentid from env error !"}));
    agent_id = "me";
}

TEST(Alert, ARefusedTextEndsTheAlertWithTheLinesOfAllWhoGiveUp) {
    const std::string alert = "GetThreatAlertInfo failed!", rule = "Set event info failed";
    const std::string event = "SetSubjectInfo failed!";
    Alert spoiled;
    const std::pair<std::string*, Lines> rows[] = {
        {&spoiled.d.strGuid, refused({alert})},
        {&spoiled.d.strImageName, refused({alert})},
        {&spoiled.r.strRiskTag, refused({alert})},
        {&spoiled.e.strImage, refused({event, rule, alert})},
        {&spoiled.object.strFilePath, refused({event, rule, alert})},
    };
    for (const auto& [text, lines] : rows) {
        const std::string good = std::exchange(*text, "\x01");
        EXPECT_EQ(build(spoiled.data).lines, lines) << "instead of " << good;
        *text = good;
    }
}

TEST(Alert, TextsAreCheckedInOrder) {
    Alert alert;
    expect_order(alert.data, alert.texts);
}

TEST(Alert, ARefusedTextInAListEndsThatListAlone) {
    const std::string bad = "\x01";
    const struct {
        const char* what;
        std::vector<std::string> tags, highlight, sub_highlight;
        std::string event_lists, rule_tags, trace_tags;
    } rows[] = {
        {"in the tags", {"a", bad, "b"}, {"h"}, {"s"}, "24={1=h} 34={1=s}", "13={1=a} 13={}", "16={1=a} 16={}"},
        {"in the highlights", {"a"}, {"g", bad, "h"}, {"s"}, "24={1=g} 24={}", "13={1=a}", "16={1=a}"},
        {"in the subject's", {"a"}, {"h"}, {bad, "s"}, "24={1=h} 34={}", "13={1=a}", "16={1=a}"},
    };
    for (const auto& row : rows) {
        Alert alert;
        alert.r.vecTags = row.tags;
        alert.e.vecHighlight = row.highlight;
        alert.e.vecSubHighlight = row.sub_highlight;
        alert.data.vecRule.emplace_back().vecTags = {"c"};
        const Built built = build(alert.data);
        EXPECT_THAT(built.shown, HasSubstr("11={2=t33} " + row.event_lists + "} 9=t23")) << row.what;
        EXPECT_THAT(built.shown, HasSubstr("11=60 " + row.rule_tags + "} 11={13={1=c}}")) << row.what;
        const bool in_tags = row.trace_tags.ends_with("{}");
        EXPECT_THAT(built.shown, EndsWith("} " + row.trace_tags + (in_tags ? "" : " 16={1=c}"))) << row.what;
        EXPECT_EQ(built.lines.size(), in_tags ? 4U : 2U) << row.what;
    }
}

}  // namespace
