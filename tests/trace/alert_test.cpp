#include "decode/event_records.h"
#include "trace/built.h"

using namespace zel_test;
using testing::EndsWith, testing::HasSubstr;

namespace {

constexpr uint32_t kMinus1 = 0xFFFFFFFF;

// An alert with one rule with one event, and in each member a value of its own.
struct Alert {
    ST_BUF_DATA data{2,      "mal",   "guid",  kMinus1, -2,   "ev",    "erv", "cid", "rep",  "mnt", "usr", "ns",
                     "iid",  "tag",   "cname", "cap",   "pb", "iname", 1,     -3,    "ext",  "scn", {},    {},
                     "HIGH", kMinus1, 2,       3,       4,    {},      10,    20,    "desc", "name"};
    ST_RULE& rule = data.vecRule.emplace_back(
        ST_RULE{"rid", -5, "mitre", "int", "rdesc", "rname", "risk", 60, "trigger", "ver", {}, {"t1", "t2"}});
    ST_RAW_EVENT& event = rule.vecEvent.emplace_back();
    ST_FILE_DELETE* record = new ST_FILE_DELETE{"gone"};

    Alert() {
        event = {kMinus1, 7,  kMinus1, kMinus1, "img", "cmd",   30,   "eusr", "eguid",
                 40,      {}, {},      {},      0,     "login", "ip", "md5",  "sha"};
        event.pPrivate = zel::EventPrivate(std::unique_ptr<ST_FILE_DELETE>(record));
        event.vecHighlight = {"h1", "h2"};
        event.vecSubHighlight = {"s1", "s2"};
    }
};

TEST(Alert, EveryMemberReachesItsField) {
    Alert alert;
    const Built built = build(alert.data, true);
    EXPECT_EQ(
        built.shown,
        "1=me 7=4 8={1=2 2=guid 3=4 4=-1 5=2 6=3 7=4 8=20 9=10 10=desc 11={1=rid 2=mitre 3=int 4=-5 5=rdesc 6=4 7=ver "
        "8={1=-1 2=6 3=40 4={2=-1 3=eguid 4=img 5=md5 6=sha 8=cmd 9=eusr 13=30 14=-1 19=login 20=ip} 11={2=gone} "
        "24={1=h1} 24={1=h2} 34={1=s1} 34={1=s2}} 9=rname 10=risk 11=60 13={1=t1} 13={1=t2}} 12=scn 15=-2 16=name "
        "17=-1 18=ext 19=ev 20=erv 23=cid 24=rep 25=mnt 26=usr 27=ns 28=iid 29=tag 30=cname 31=cap 32=pb 33=iname "
        "34=-3} 16={1=t1} 16={1=t2}");
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

TEST(Alert, ARefusedTextEndsTheAlertWithItsChainOfLines) {
    const std::string alert = "GetThreatAlertInfo failed!", rule = "Set event info failed",
                      event = "SetSubjectInfo failed!";
    Alert spoiled;
    const std::pair<std::string*, Lines> rows[] = {
        {&spoiled.data.strGuid, refused({alert})},
        {&spoiled.data.strExtendedMsg, refused({alert})},
        {&spoiled.data.strImageName, refused({alert})},
        {&spoiled.rule.strRiskTag, refused({alert})},
        {&spoiled.event.strImage, refused({event, rule, alert})},
        {&spoiled.event.strSha256, refused({event, rule, alert})},
        {&spoiled.record->strFilePath, refused({event, rule, alert})},
    };
    for (const auto& [text, lines] : rows) {
        const std::string good = std::exchange(*text, std::string(1, '\x01'));
        EXPECT_EQ(build(spoiled.data).lines, lines) << "instead of " << good;
        *text = good;
    }
}

TEST(Alert, ARefusedTextInAListEndsThatListAlone) {
    Alert alert;
    alert.rule.vecTags = {"a", "\x01", "b"};
    alert.event.vecHighlight = {"\x01", "h"};
    alert.data.vecRule.emplace_back().vecTags = {"c"};
    const Built built = build(alert.data);
    EXPECT_EQ(built.lines.size(), 6U) << "two for each of three lists";
    EXPECT_THAT(built.shown,
                HasSubstr("11={2=gone} 24={}} 9=rname 10=risk 11=60 13={1=a} 13={}} 11={13={1=c}} 12=scn"));
    EXPECT_THAT(built.shown, EndsWith("} 16={1=a} 16={}"));
}

}  // namespace
