#include "decode/alert_types.h"
#include "decode/document.h"
#include "decode/event_records.h"
#include "trace/built.h"

using namespace zel_test;
using testing::EndsWith, testing::HasSubstr;

namespace {

// An alert with one rule with one event.
struct Alert : Decoded {
    Alert()
        : Decoded(Document{
              .type = alert_type::ioa,
              .rules = zel_test::rule(R"("status":"trigger","confidence":-60,"tags":["t1","t2"])",
                                      zel_test::event(R"("version":-1,"SubjectPid":-1,"SubjectTid":-2,)"
                                                      R"("Highlight":["h1","h2"],"SubHighLight":["s1","s2"])")),
              .info = scenario(zel_test::event(R"("OpTime":5)")),
              .given = R"("risk_level":"CRITICAL","count":-1,"hash":-2,"threat_score":-1)",
              .guid = R"("guid")"}) {
        data.strExtendedMsg = "extended";
        data.nContainerInitPid = -3;
        event.pPrivate = zel::EventPrivate(std::unique_ptr<ST_FILE_DELETE>(&object));
    }
    ST_RULE& rule = data.vecRule.at(0);
    ST_RAW_EVENT& event = rule.vecEvent.at(0);
    ST_FILE_DELETE& object = *new ST_FILE_DELETE{.strFilePath = "gone"};
};

TEST(Alert, EveryMemberReachesItsField) {
    Alert alert;
    const Built built = build(alert.data, true);
    EXPECT_EQ(built.shown,
              "1=me 7=4 8={1=2 2=guid 3=5 4=-1 5=8 6=9 7=10 8=19 9=5 10=8 "
              "11={1=6 2=7 3=13 4=10 5=8 6=4 7=11 "
              "8={1=-1 2=6 3=19 4={2=-1 3=18 4=10 5=16 6=17 8=11 9=13 13=12 14=-2 19=14 20=15} 11={2=gone} "
              "24={1=h1} 24={1=h2} 34={1=s1} 34={1=s2}} "
              "9=12 10=14 11=-60 13={1=t1} 13={1=t2}} "
              "12=6 15=-2 16=12 17=-1 18=extended 19=13 20=14 23=6 24=7 25=8 "
              "26=9 27=10 28=11 29=12 30=13 31=14 32=15 33=16 34=-3} 16={1=t1} 16={1=t2}");
    EXPECT_EQ(built.lines, "");
    EXPECT_EQ(built.nRiskLevel, 5);
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
    EXPECT_EQ(build(data).lines, "E get agentid from env error !\n");
    agent_id = "me";
}

TEST(Alert, TextsAreCheckedInOrderAndARefusedOneEndsIt) {
    Alert alert;
    ST_BUF_DATA& d = alert.data;
    ST_RULE& r = alert.rule;
    ST_RAW_EVENT& e = alert.event;
    // clang-format off
    const std::vector<std::string*> texts = {
        &d.strGuid, &d.strBestRuleDesc, &d.strScenarioId, &d.strBestRuleName, &d.strEngineVer, &d.strEngineRuleVer,
        &d.strExtendedMsg, &d.strContainerId, &d.strRepository, &d.strMounts, &d.strUser, &d.strNamespace,
        &d.strImageId, &d.strImageTag, &d.strContainerName, &d.strCapability, &d.strPortsBinding, &d.strImageName,
        &r.strRuleId, &r.strMitreId, &r.strInternalId, &r.strRuleDesc, &r.strVersion, &r.strRuleName, &r.strRiskTag,
        &e.strImage, &e.strCmd, &e.strUser, &e.strGuid, &e.strLoginName, &e.strSshIp, &e.strMd5, &e.strSha256,
        &alert.object.strFilePath};
    // clang-format on
    for (size_t i = 0; i < texts.size(); ++i) *texts[i] = bad_text(i);
    for (size_t i = 0; i < texts.size(); ++i) {
        const bool in_event = i >= texts.size() - 9;
        EXPECT_EQ(build(d).lines, refused(bad_text(i)) + (in_event ? kEventFails : kAlertFails));
        texts[i]->clear();
    }
    EXPECT_EQ(build(d).lines, "");
}

TEST(Alert, ARefusedTextInAListEndsThatListAlone) {
    const std::string bad = "\x01";
    using Texts = std::vector<std::string>;
    const std::tuple<const char*, Texts, Texts, Texts, std::string, std::string, std::string> rows[] = {
        {"in the tags", {"a", bad, "b"}, {"h"}, {"s"}, "24={1=h} 34={1=s}", "13={1=a} 13={}", "16={1=a} 16={}"},
        {"in the highlights", {"a"}, {"g", bad, "h"}, {"s"}, "24={1=g} 24={}", "13={1=a}", "16={1=a}"},
        {"in the subject's", {"a"}, {"h"}, {bad, "s"}, "24={1=h} 34={}", "13={1=a}", "16={1=a}"},
    };
    for (const auto& [what, tags, highlight, sub_highlight, event_lists, rule_tags, trace_tags] : rows) {
        Alert alert;
        alert.rule.vecTags = tags;
        alert.event.vecHighlight = highlight;
        alert.event.vecSubHighlight = sub_highlight;
        alert.data.vecRule.emplace_back().vecTags = {"c"};
        const Built built = build(alert.data);
        EXPECT_THAT(built.shown, HasSubstr("11={2=gone} " + event_lists + "} 9=12")) << what;
        EXPECT_THAT(built.shown, HasSubstr("11=-60 " + rule_tags + "} 11={13={1=c}}")) << what;
        const bool in_tags = trace_tags.ends_with("{}");
        EXPECT_THAT(built.shown, EndsWith("} " + trace_tags + (in_tags ? "" : " 16={1=c}"))) << what;
        EXPECT_EQ(std::ranges::count(built.lines, '\n'), in_tags ? 4 : 2) << what;
    }
}

}  // namespace
