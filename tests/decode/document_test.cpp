#include "decode/document.h"
#include "decode/processtreeselector.h"

struct ProcessTreeSelectorPeer {
    // The process selected, or "none"; forgets it.
    static std::string take() {
        ProcessTreeSelector& s = ProcessTreeSelector::Instance();
        return std::exchange(s.bSelected, uint8_t{0}) != 0 ? zel_test::dump(s.nPid, s.llCreateTime, s.strImage)
                                                           : "none";
    }
};

namespace zel_test {
namespace {

using zel::Words;

struct Row {
    int line;
    Document document;
    std::string log, facts;
};
// `facts` tells what the table is about.
void check(const std::vector<Row>& rows, const std::function<std::string(const Decoded&)>& facts) {
    for (const Row& row : rows) {
        const Decoded alert(row.document);
        EXPECT_EQ(alert.log, row.log) << row.line;
        EXPECT_EQ(facts(alert), row.facts) << row.line;
    }
}

std::string subject_values(const ST_RAW_EVENT& e) {
    return dump(e.uVersion, e.uType, e.uPid, e.uTid, e.strImage, e.strCmd, e.llCreateTime, e.strUser, e.strLoginName,
                e.strSshIp, e.strMd5, e.strSha256, e.strGuid, e.llOpTime);
}

// clang-format off
TEST(Document, ReadsEachKeyInOrder) {
    const struct {
        int line;
        std::string keys;
        Words words;
        std::string behind;
        Document (*place)(const std::string& text);
        std::string (*values)(const ST_BUF_DATA&);
    } rows[] = {
        {__LINE__, kRootKeys, Words::not_string, "", [](auto& text) { return Document{.root = text}; },
         [](auto& d) { return dump(d.strRiskLevel, d.uThreatScore, d.uTotalScore, d.uVerifyScore, d.uVerifyTotalScore, d.uCount, d.llHash, d.strEngineVer, d.strEngineRuleVer); }},
        {__LINE__, kContainerKeys, Words::not_string, "", [](auto& text) { return Document{.type = "6", .root = members(kRootKeys) + ',' + text}; },
         [](auto& d) { return dump(d.strContainerId, d.strRepository, d.strMounts, d.strUser, d.strNamespace, d.strImageId, d.strImageTag, d.strContainerName, d.strCapability, d.strPortsBinding, d.strImageName, d.nContainerInitPid, d.uPrivileged); }},
        {__LINE__, "malicious_key:S", Words::not_string, "", [](auto& text) { return Document{.type = "1,\"-\":0" + std::string(text.empty() ? "" : ",") + text, .root = members(kRootKeys)}; }, [](auto& d) { return dump(d.strMaliciousKey); }},
        {__LINE__, "msg:S", Words::not_string, kInInfo, [](auto& text) { return Document{.type = "7", .info = object(text, "\"-\":0")}; }, [](auto& d) { return dump(d.strExtendedMsg); }},
        {__LINE__, "ScenarioID:S", Words::not_type, kInInfo, [](auto& text) { return Document{.type = "2", .info = "{\"ScenarioInfo\":" + object(text, "\"ProcessSet\":[]") + '}'}; }, [](auto& d) { return dump(d.strScenarioId); }},
        {__LINE__, kRuleKeys, Words::not_string, kInRule, [](auto& text) { return Document{.rules = rule("", "", text)}; },
         [](auto& d) { auto& r = d.vecRule.at(0); return dump(r.strRuleId, r.strMitreId, r.strRuleDesc, r.strStatus, r.nScore, r.strVersion, r.strRuleName, r.strInternalId, r.strRiskTag, r.nConfidence); }},
        {__LINE__, kSubjectKeys, Words::not_type, kInEvent, [](auto& text) { return Document{.rules = rule("", event("", text))}; }, [](auto& d) { return subject_values(d.vecRule.at(0).vecEvent.at(0)); }},
        {__LINE__, kSubjectKeys, Words::not_type, "|E GetRawEventInfoEx error.|E GetProcessSet failed!" + kInInfo, [](auto& text) { return Document{.type = "2", .info = scenario(event("", text))}; }, [](auto& d) { return subject_values(d.vecProcessSet.at(0)); }},
    };
    for (const auto& row : rows) {
        check_keys(row.line, row.keys, row.words, row.behind, [&](const std::string& text, const std::string& values) {
            const Decoded alert(row.place(text));
            EXPECT_EQ(alert.ok ? row.values(alert.data) : "", values) << row.line;
            return alert.log;
        });
    }
}

TEST(Document, AcceptsOrRefuses) {
    check({
        {__LINE__, {.type = "\"3\""}, "E alert_type is not string.", "refused"},
        {__LINE__, {.type = "0"}, "E The json event is unknown.0", "refused"},
        {__LINE__, {.type = "23"}, "E The json event is unknown.23", "refused"},
        {__LINE__, {.type = "16"}, "", "accepted"},
        {__LINE__, {.guid = "5"}, "E Guid is not string.", "refused"},
        {__LINE__, {.info = ""}, "", "accepted"},
        {__LINE__, {.type = "6", .info = ""}, "E get json value error.key:ExtendedInfo" + kInInfo, "refused"},
        {__LINE__, {.type = "7", .info = ""}, "E get json value error.key:ExtendedInfo" + kInInfo, "refused"},
        {__LINE__, {.type = "2", .info = ""}, "E get json value error.key:ExtendedInfo" + kInInfo, "refused"},
        {__LINE__, {.type = "2", .info = "{}"}, "E get json object error:[ScenarioInfo]" + kInInfo, "refused"},
        {__LINE__, {.type = "2", .info = R"({"ScenarioInfo":{"ScenarioID":""}})"}, "E get json obj error.|E GetProcessSet failed!" + kInInfo, "refused"},
        {__LINE__, {.type = "3,\"rule\":\"text\""}, "", "accepted"},
        {__LINE__, {.type = "3,\"rule\":{\"a\":5}"}, "E get json value error." + kInRule, "refused"},
        {__LINE__, {.rules = rule("\"event\":7")}, "", "accepted"},
        {__LINE__, {.rules = rule("\"event\":{\"a\":{}}")}, "E get json value error." + kInEvent, "refused"},
        {__LINE__, {.rules = '{' + members(kRuleKeys) + '}'}, "E get json obj error.|E GetRawEventInfo failed!" + kInRule, "refused"},
        {__LINE__, {.rules = rule("", event("\"type\":30"))}, "E The event is unknown.event:30|E GetEventPrivateInfo error!" + kInEvent, "refused"},
        {__LINE__, {.rules = rule("", event("") + ',' + event("\"FILEPATH\":6"))}, "E FilePath is not 0x00000010.|E GetEventPrivateInfo error!" + kInEvent, "refused"},
    }, [](auto& alert) { return alert.ok ? "accepted" : "refused"; });
    EXPECT_EQ(Decoded("").log + Decoded("{\"Guid\"").log, "");
    EXPECT_EQ(Decoded("[1]").log, "E get json value error.|E get json value error.");
    EXPECT_EQ(Decoded("{\"alert_type\":3," + members(kRootKeys) + '}').log, "E get json value error.|E GetRuleInfo failed!|E get json value error.");
}

TEST(Document, GathersAcrossRulesAndEvents) {
    const std::string better = R"("score":11,"rule_desc":"d")";
    check({
        {__LINE__, {.rules = rule("") + ',' + rule(R"("rule_desc":"d")")}, "", "8 12 15 19 19 "},
        {__LINE__, {.rules = rule("") + ',' + rule(R"("rule_name":"n",)" + better)}, "", "d n 15 19 19 "},
        {__LINE__, {.rules = rule("") + ',' + rule(R"("rule_name":"",)" + better)}, "", "d 12 15 19 19 "},
        {__LINE__, {.rules = rule(R"("rule_name":"")") + ',' + rule("\"score\":9")}, "", "8  15 19 19 "},
        {__LINE__, {.rules = rule("\"score\":0") + ',' + rule("\"score\":-3")}, "", "  15 19 19 "},
        {__LINE__, {.type = "6", .rules = rule("\"score\":7")}, "", "8 12 100 19 19 "},
        {__LINE__, {.type = "6", .rules = rule("\"score\":6")}, "", "8 12 15 19 19 "},
        {__LINE__, {.type = "2", .info = scenario(event("\"OpTime\":2") + ',' + event("\"OpTime\":99"))}, "", "8 12 15 2 99 "},
        {__LINE__, {.rules = rule("", event("") + ',' + event("\"OpTime\":0") + ',' + event("\"OpTime\":17"))}, "", "8 12 15 17 19 "},
        {__LINE__, {.rules = rule("", event("") + ',' + event("\"OpTime\":0"))}, "", "8 12 15 0 19 "},
        {__LINE__, {.rules = rule("", event("\"OpTime\":-4"))}, "", "8 12 15 -4 0 "},
        {__LINE__, {.type = "7", .rules = rule("\"rule_desc\":\"old\"", event("\"OpTime\":1")), .info = "{}"}, "E get json value error." + kInInfo, "  15 0 0 "},
        {__LINE__, {}, "", "old 12 15 1 19 "},  // inherits what the failed document left
        {__LINE__, {}, "", "8 12 15 19 19 "},
    }, [](auto& alert) {
        return dump(alert.data.strBestRuleDesc, alert.data.strBestRuleName, alert.data.vecRule.back().nConfidence, alert.data.llEarliestOpTime, alert.data.llLatestOpTime);
    });
}

TEST(Document, KeepsTheGuidEvenOfARefusedOne) {
    const std::string guid = "01234567-89ab-cdef-0123-456789abcdef";
    check({
        {__LINE__, {.type = "99"}, "E The json event is unknown.99", guid},
        {__LINE__, {.guid = "\"short\""}, "", "short"},
        {__LINE__, {.guid = '"' + guid + "xyz\""}, "", guid + 'x'},
    }, [](auto& alert) {
        std::string padded = alert.data.strGuid;
        padded.resize(kGuidSize);
        return memcmp(alert.node.szGuid, padded.data(), kGuidSize) == 0 ? alert.data.strGuid : "node and record differ";
    });
}

TEST(Document, TakesTheStringsOfItsListsAndGivesUpTheStorage) {
    Decoded alert(Document{.rules = rule(R"("tags":["a",5,null,"b"])", event(R"("Highlight":{"k":"c"},"SubHighLight":"d")")) + ",5"});
    ST_BUF_DATA& d = alert.data;
    EXPECT_FALSE(alert.ok);  // the rule before the bad one is kept
    EXPECT_EQ(d.vecRule.at(0).vecTags, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(d.vecRule[0].vecEvent.at(0).vecHighlight, (std::vector<std::string>{"c"}));
    EXPECT_TRUE(d.vecRule[0].vecEvent[0].vecSubHighlight.empty());
    d.vecLinkSet.resize(3);
    FreeBufData(d);
    EXPECT_EQ(d.vecRule.capacity() + d.vecProcessSet.capacity() + d.vecLinkSet.capacity(), 0U);
}

TEST(Document, KeepsTheContainerOfTheLastAlertThatHadOne) {
    g_stContainerInfo = {};
    EXPECT_FALSE(Decoded(Document{.type = "2", .rules = "5"}).ok);
    const Decoded host(Document{.root = "\"imageid\":\"other\"," + members(kRootKeys)});
    EXPECT_FALSE(Decoded(Document{.type = "2,\"imageid\":\"other\",\"Privileged\":\"\""}).ok);
    const ST_CONTAINER_INFO& c = g_stContainerInfo;
    EXPECT_EQ(dump(c.strContainerId, c.strRepository, c.strMounts, c.strUser, c.strNamespace, c.strImageId, c.strImageTag, c.strContainerName, c.strCapability, c.strPortsBinding, c.strImageName, c.llContainerInitPid, c.uPrivileged),
              "6 7 8 9 10 11 12 13 14 15 16 17 18 ");
    EXPECT_EQ(host.data.strContainerId + host.data.strImageId + host.data.strMaliciousKey + host.data.strExtendedMsg, "host");
}

const std::string kProcess = R"("type":1,"ObjectPid":31,"ObjectTid":32,"ObjectImage":"/obj","ObjectCmd":"","ObjectCreateTime":33,"ObjectUser":"","ObjectGuid":"","ObjectMd5":"","ObjectSha256":"","DecodedObjectCmd":"")";
const std::string kSubject = "8 12 10 ", kObject = "31 33 /obj ";

TEST(PostOperation, AsksForChecksAndSelects) {
    ProcessTreeSelector::Instance().SetSelection(0, 0, "");  // so that the last event of a row selects nothing
    const auto asking = [](const std::string& operations, const std::string& given = "") {
        return Document{.rules = rule("", event("\"PostOpr\":" + operations + (given.empty() ? "" : ",") + given))};
    };
    check({
        {__LINE__, asking(R"([{"Type":1,"Name":["SubjectPid","ObjectPid"]}])"), "", "3 0 0  "},
        {__LINE__, asking(R"([{"Type":1,"Name":["SubjectPid"]}])"), "", "1 0 0  "},
        {__LINE__, asking(R"([{"Type":1,"Name":[]}])"), "", "1 0 0  "},
        {__LINE__, asking(R"([{"Type":1}])"), "", "0 0 0  "},
        {__LINE__, asking(R"([{"Type":1,"Name":["x"]},{"Type":1,"Name":["SubjectPid"]}])"), "", "1 0 0  "},
        {__LINE__, asking(R"([{"Type":3,"Name":["ObjectPid"]}])", kProcess), "", "2 0 0  "},
        {__LINE__, asking(R"([{"Type":2,"Name":["ObjectPid"]}])", kProcess), "", "0 " + kObject},
        {__LINE__, asking(R"([{"Type":2,"Name":["SubjectPid","ObjectPid"]}])", kProcess), "", "0 " + kSubject},
        {__LINE__, asking(R"([{"Type":2}])"), "", "0 0 0  "},
        {__LINE__, asking(R"([{"Type":2,"Name":["ObjectPid"]}])"), "", "0 " + kSubject},
        {__LINE__, asking(R"([{"Type":4},{"Type":1,"Name":[5]}])"), "E unknown type:4", "1 0 0  "},
        {__LINE__, asking(R"([{"Type":1,"Name":[]},{"Type":"1"},{"Type":4}])"), "E Type is not 0x00000008.", "1 0 0  "},
        {__LINE__, asking(R"([7,{"Type":1,"Name":[]}])"), "E get json value error.", "0 0 0  "},
        {__LINE__, asking(R"({"a":{"Type":1,"Name":{"n":"ObjectPid"}}})"), "", "2 0 0  "},
    }, [](auto& alert) {
        const std::string selected = ProcessTreeSelectorPeer::take();
        ProcessTreeSelector::Instance().SetSelection(0, 0, "");
        return std::to_string(alert.data.vecRule.at(0).vecEvent.at(0).uPostOpr) + ' ' + selected;
    });
}

TEST(Selection, TakesTheLastEvent) {
    ProcessTreeSelectorPeer::take();
    check({
        {__LINE__, {.rules = rule("", "")}, "", "none"},
        {__LINE__, {.rules = rule("", event(kProcess) + ',' + event(""))}, "", kSubject},
        {__LINE__, {.rules = rule("", event("") + ',' + event(kProcess))}, "", kObject},
        {__LINE__, {.rules = rule("", event("\"ObjectImage\":\"\"," + kProcess))}, "", kSubject},
        {__LINE__, {.rules = rule("", event(kProcess)) + ',' + rule("")}, "", kObject},
    }, [](auto&) { return ProcessTreeSelectorPeer::take(); });
}
// clang-format on

}  // namespace
}  // namespace zel_test
