#include "decode/document.h"

namespace zel_test {
namespace {

using zel::Words;

std::string subject_values(const ST_RAW_EVENT& e) {
    return dump(e.uVersion, e.uType, e.uPid, e.uTid, e.strImage, e.strCmd, e.llCreateTime, e.strUser, e.strLoginName,
                e.strSshIp, e.strMd5, e.strSha256, e.strGuid, e.llOpTime);
}
std::string best_rule(const ST_BUF_DATA& d) { return "desc=" + d.strBestRuleDesc + " name=" + d.strBestRuleName; }
std::string times(const ST_BUF_DATA& d) {
    return "earliest=" + std::to_string(d.llEarliestOpTime) + " latest=" + std::to_string(d.llLatestOpTime);
}

// A document that passes takes with it what refused ones left.
void start_afresh() { EXPECT_TRUE(Decoded(Document{}).ok); }

TEST(Document, TakesEachKeyInOrderAndNamesTheFirstThatFails) {
    const struct {
        std::string keys;
        Words words;
        std::string behind;
        Document (*place)(const std::string& text);
        std::string (*values)(const ST_BUF_DATA&);
    } rows[] = {
        // clang-format off
        {kRootKeys, Words::not_string, "",
         [](auto& text) { return Document{.root = text}; },
         [](auto& d) { return dump(d.strRiskLevel, d.uThreatScore, d.uTotalScore, d.uVerifyScore, d.uVerifyTotalScore,
                                   d.uCount, d.llHash, d.strEngineVer, d.strEngineRuleVer); }},
        {kContainerKeys, Words::not_string, "",
         [](auto& text) { return Document{.type = 6, .root = joined({members(kRootKeys), text})}; },
         [](auto& d) { return container_values(d) + dump(d.nContainerInitPid, d.uPrivileged); }},
        {"malicious_key:S", Words::not_string, "",
         [](auto& text) { return Document{.type = 1, .root = joined({members(kRootKeys), text})}; },
         [](auto& d) { return dump(d.strMaliciousKey); }},
        {"msg:S", Words::not_string, kInInfo,
         [](auto& text) { return Document{.type = 7, .info = '{' + text + '}'}; },
         [](auto& d) { return dump(d.strExtendedMsg); }},
        {"ScenarioID:S", Words::not_type, kInInfo,
         [](auto& text) {
             return Document{.type = 2, .info = "{\"ScenarioInfo\":" + object(text, "\"ProcessSet\":[]") + '}'};
         },
         [](auto& d) { return dump(d.strScenarioId); }},
        {kRuleKeys, Words::not_string, kInRule,
         [](auto& text) { return Document{.rules = rule("", "", text)}; },
         [](auto& d) {
             const ST_RULE& r = d.vecRule.at(0);
             return dump(r.strRuleId, r.strMitreId, r.strRuleDesc, r.strStatus, r.nScore, r.strVersion, r.strRuleName,
                         r.strInternalId, r.strRiskTag, r.nConfidence);
         }},
        {kSubjectKeys, Words::not_type, kInEvent,
         [](auto& text) { return Document{.rules = rule("", event("", text))}; },
         [](auto& d) { return subject_values(d.vecRule.at(0).vecEvent.at(0)); }},
        {kSubjectKeys, Words::not_type, "|E GetRawEventInfoEx error.|E GetProcessSet failed!" + kInInfo,
         [](auto& text) { return Document{.type = 2, .info = scenario(event("", text))}; },
         [](auto& d) { return subject_values(d.vecProcessSet.at(0)); }},
        // clang-format on
    };
    for (const auto& row : rows) {
        check_keys(row.keys, row.words, row.behind, [&](const std::string& text, const std::string& values) {
            const Decoded alert(row.place(text));
            EXPECT_EQ(alert.ok ? row.values(alert.data) : "", values) << row.keys;
            return alert.log;
        });
    }
}

TEST(Document, IsRefusedWithTheLinesThatSayWhy) {
    const std::string no_info = "E get json value error.key:ExtendedInfo" + kInInfo;
    const std::string no_value = "E get json value error.";
    const struct {
        const char* what;
        Document document;
        std::string log;  // none: the document passes
    } rows[] = {
        // clang-format off
        {"alert type as text", {.given = R"("alert_type":"3")"}, "E alert_type is not string."},
        {"alert type below 1", {.type = 0}, "E The json event is unknown.0"},
        {"highest alert type", {.type = 22}, ""},
        {"alert type above", {.type = 23}, "E The json event is unknown.23"},
        {"alert type without a name", {.type = 16}, ""},
        {"GUID as number", {.guid = "5"}, "E Guid is not string."},
        {"type 3 needs no info", {.info = ""}, ""},
        {"type 6 needs info", {.type = 6, .info = ""}, no_info},
        {"type 7 needs info", {.type = 7, .info = ""}, no_info},
        {"type 2 needs info", {.type = 2, .info = ""}, no_info},
        {"type 2 needs a scenario", {.type = 2, .info = "{}"}, "E get json object error:[ScenarioInfo]" + kInInfo},
        {"a scenario needs its processes", {.type = 2, .info = R"({"ScenarioInfo":{"ScenarioID":""}})"},
         "E get json obj error.|E GetProcessSet failed!" + kInInfo},
        {"rules as text are none", {.given = R"("rule":"text")"}, ""},
        {"rules as object are walked", {.given = R"("rule":{"a":5})"}, no_value + kInRule},
        {"events as number are none", {.rules = rule("\"event\":7")}, ""},
        {"events as object are walked", {.rules = rule("\"event\":{\"a\":{}}")}, no_value + kInEvent},
        {"no events", {.rules = '{' + members(kRuleKeys) + '}'},
         "E get json obj error.|E GetRawEventInfo failed!" + kInRule},
        {"a second event fails", {.rules = rule("", event("") + ',' + event(R"("FILEPATH":6)"))},
         "E FilePath is not 0x00000010.|E GetEventPrivateInfo error!" + kInEvent},
        // clang-format on
    };
    for (const auto& row : rows) {
        const Decoded alert(row.document);
        EXPECT_EQ(alert.log, row.log) << row.what;
        EXPECT_EQ(alert.ok, row.log.empty()) << row.what;
    }
    EXPECT_EQ(Decoded("").log + Decoded("{\"Guid\"").log, "") << "no JSON";
    EXPECT_EQ(Decoded("[1]").log, no_value + '|' + no_value) << "no object";
    EXPECT_EQ(Decoded("{\"alert_type\":3," + members(kRootKeys) + '}').log,
              no_value + "|E GetRuleInfo failed!|" + no_value);
    for (const int type : {0, 30, 31, 32, 33, 40}) {
        const std::string number = std::to_string(type);
        EXPECT_EQ(Decoded(Document{.rules = rule("", event("\"type\":" + number))}).log,
                  "E The event is unknown.event:" + number + "|E GetEventPrivateInfo error!" + kInEvent);
    }
}

std::string scored(int score, const std::string& desc, const std::string& name) {
    return rule("\"score\":" + std::to_string(score) + R"(,"rule_desc":")" + desc + R"(","rule_name":")" + name + '"');
}

TEST(Document, ItsBestRuleIsTheFirstOfTheHighestScore) {
    const struct {
        const char* what;
        std::string first, second;
        std::string best;
    } rows[] = {
        {"equal scores", scored(5, "a", "A"), scored(5, "b", "B"), "desc=a name=A"},
        {"higher score behind", scored(5, "a", "A"), scored(6, "b", "B"), "desc=b name=B"},
        {"lower score behind", scored(6, "a", "A"), scored(5, "b", "B"), "desc=a name=A"},
        {"better one without name", scored(5, "a", "A"), scored(6, "b", ""), "desc=b name=A"},
        {"lower score with a name", scored(5, "a", ""), scored(4, "b", "B"), "desc=a name="},
        {"no score above 0", scored(0, "a", "A"), scored(-3, "b", "B"), "desc= name="},
    };
    start_afresh();
    for (const auto& row : rows)
        EXPECT_EQ(best_rule(Decoded(Document{.rules = row.first + ',' + row.second}).data), row.best) << row.what;
}

std::string events_at(const std::vector<int>& times) {
    std::vector<std::string> events;
    for (const int time : times) events.push_back(event("\"OpTime\":" + std::to_string(time)));
    return joined(events);
}

TEST(Document, ItsTimesAreThoseOfAllEvents) {
    const struct {
        const char* what;
        std::vector<int> rule_events, process_set;
        std::string expected;
    } rows[] = {
        {"any order", {19, 7, 99, 20}, {}, "earliest=7 latest=99"},
        {"processes count as well", {19}, {2, 99}, "earliest=2 latest=99"},
        {"a 0 is forgotten", {19, 0, 17, 18}, {}, "earliest=17 latest=19"},
        {"a 0 at the end stays", {19, 0}, {}, "earliest=0 latest=19"},
        {"the latest is never below 0", {-4, -2}, {}, "earliest=-4 latest=0"},
    };
    start_afresh();
    for (const auto& row : rows) {
        const Decoded alert(Document{
            .type = 2, .rules = rule("", events_at(row.rule_events)), .info = scenario(events_at(row.process_set))});
        EXPECT_EQ(times(alert.data), row.expected) << row.what;
    }
}

TEST(Document, InheritsWhatARefusedOneGathered) {
    const Document good{.rules = scored(0, "", "")};
    start_afresh();
    EXPECT_FALSE(Decoded(Document{.type = 7, .rules = rule("\"rule_desc\":\"old\"", events_at({1})), .info = "{}"}).ok);
    const Decoded heir(good), next(good);
    EXPECT_EQ(best_rule(heir.data) + ' ' + times(heir.data), "desc=old name=12 earliest=1 latest=19");
    EXPECT_EQ(best_rule(next.data) + ' ' + times(next.data), "desc= name= earliest=19 latest=19");
}

TEST(Document, AMemoryFindingOfAHighScoreIsCertain) {
    const struct {
        int type, score, confidence;
    } rows[] = {{6, 7, 100}, {6, 6, 10}, {2, 9, 10}};
    for (const auto& row : rows) {
        const std::string keys = "\"confidence\":10,\"score\":" + std::to_string(row.score);
        const Decoded alert(
            Document{.type = row.type, .rules = rule(keys), .info = row.type == 2 ? scenario("") : R"({"msg":""})"});
        EXPECT_EQ(alert.data.vecRule.at(0).nConfidence, row.confidence) << row.type << " score " << row.score;
    }
}

TEST(Document, ItsGuidIsCutTo37CharactersEvenWhenItIsRefused) {
    const std::string guid = "01234567-89ab-cdef-0123-456789abcdef";
    const struct {
        int type;
        std::string sent, kept;
    } rows[] = {{3, "short", "short"},
                {3, guid, guid},
                {3, guid + 'x', guid + 'x'},
                {3, guid + "xy", guid + 'x'},
                {99, guid, guid}};
    for (const auto& row : rows) {
        const Decoded alert(Document{.type = row.type, .guid = '"' + row.sent + '"'});
        EXPECT_EQ(alert.data.strGuid, row.kept);
        std::string padded = row.kept;
        padded.resize(sizeof alert.node.szGuid);
        EXPECT_EQ(memcmp(alert.node.szGuid, padded.data(), padded.size()), 0) << row.sent;
    }
}

TEST(Document, TakesTheStringsOfItsListsAndGivesUpTheStorage) {
    const std::string with_lists = event(R"("Highlight":{"k":"c"},"SubHighLight":["d"])");
    Decoded alert(Document{.rules = rule(R"("tags":["a",5,null,"b"])", with_lists) + ",5"});
    ST_BUF_DATA& d = alert.data;
    EXPECT_FALSE(alert.ok);
    ASSERT_EQ(d.vecRule.size(), 1U) << "the rule before the bad one";
    EXPECT_EQ(d.vecRule[0].vecTags, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(d.vecRule[0].vecEvent.at(0).vecHighlight, (std::vector<std::string>{"c"}));
    EXPECT_EQ(d.vecRule[0].vecEvent[0].vecSubHighlight, (std::vector<std::string>{"d"}));
    EXPECT_EQ(Decoded(Document{.type = 2, .info = scenario(event("") + ",5")}).data.vecProcessSet.size(), 1U);
    d.vecLinkSet.resize(3);
    FreeBufData(d);
    EXPECT_EQ(d.vecRule.capacity() + d.vecProcessSet.capacity() + d.vecLinkSet.capacity(), 0U);
}

TEST(Document, KeepsTheContainerOfTheLastAlertThatHadOne) {
    const std::string other = R"("imageid":"other")";
    g_stContainerInfo = {};
    EXPECT_FALSE(Decoded(Document{.type = 2, .rules = "5"}).ok) << "refused behind the container";
    const Decoded host(Document{.given = other});
    EXPECT_FALSE(Decoded(Document{.type = 2, .given = other + R"(,"Privileged":"")"}).ok) << "refused within it";
    EXPECT_EQ(
        container_values(g_stContainerInfo) + dump(g_stContainerInfo.llContainerInitPid, g_stContainerInfo.uPrivileged),
        "6 7 8 9 10 11 12 13 14 15 16 17 18 ");
    EXPECT_EQ(container_values(host.data) + host.data.strMaliciousKey + host.data.strExtendedMsg, "host           ");
}

const std::string kProcess =
    R"("type":1,"ObjectPid":31,"ObjectTid":32,"ObjectImage":"/obj","ObjectCmd":"","ObjectCreateTime":33,)"
    R"("ObjectUser":"","ObjectGuid":"","ObjectMd5":"","ObjectSha256":"","DecodedObjectCmd":"")";
const std::string kSubject = "pid 8 of 12 10", kObject = "pid 31 of 33 /obj";

TEST(PostOperation, AsksForChecksAndSelects) {
    const std::string file = R"("type":7)", nothing = "pid 0 of 0 ";
    const struct {
        std::string event, operations;
        uint32_t checked;
        std::string selected, log;
    } rows[] = {
        // clang-format off
        {file, R"([{"Type":1,"Name":["SubjectPid","ObjectPid"]}])", 3, nothing, ""},
        {file, R"([{"Type":1,"Name":["SubjectPid"]}])", 1, nothing, ""},
        {file, R"([{"Type":1,"Name":[]}])", 1, nothing, ""},
        {file, R"([{"Type":1}])", 0, nothing, ""},
        {file, R"([{"Type":1,"Name":["x"]},{"Type":1,"Name":["SubjectPid"]}])", 1, nothing, ""},
        {file, R"([{"Type":1,"Name":["x"]},{"Type":1}])", 0, nothing, ""},
        {kProcess, R"([{"Type":3,"Name":["ObjectPid"]}])", 2, nothing, ""},
        {kProcess, R"([{"Type":2,"Name":["ObjectPid"]}])", 0, kObject, ""},
        {kProcess, R"([{"Type":2,"Name":["SubjectPid","ObjectPid"]}])", 0, kSubject, ""},
        {file, R"([{"Type":2}])", 0, nothing, ""},
        {file, R"([{"Type":2,"Name":["ObjectPid"]}])", 0, kSubject, ""},
        {file, R"([{"Type":4},{"Type":1,"Name":[5]}])", 1, nothing, "E unknown type:4"},
        {file, R"([{"Type":1,"Name":[]},{"Type":"1"},{"Type":4}])", 1, nothing, "E Type is not 0x00000008."},
        {file, R"([7,{"Type":1,"Name":[]}])", 0, nothing, "E get json value error."},
        {file, R"({"a":{"Type":1,"Name":{"n":"ObjectPid"}}})", 2, nothing, ""},
        // clang-format on
    };
    for (const auto& row : rows) {
        ProcessTreeSelector::Instance().SetSelection(0, 0, "");  // so that the last event selects nothing
        const Decoded alert(Document{.rules = rule("", event(row.event + ",\"PostOpr\":" + row.operations))});
        EXPECT_EQ(alert.data.vecRule.at(0).vecEvent.at(0).uPostOpr, row.checked) << row.operations;
        EXPECT_EQ(ProcessTreeSelectorPeer::take(), row.selected) << row.operations;
        EXPECT_EQ(alert.log, row.log) << row.operations;
    }
}

TEST(Selection, TakesTheLastEventOfTheFirstListThatHasOne) {
    const struct {
        const char* what;
        std::string rules, selected;
    } rows[] = {
        {"no event", rule("", ""), "none"},
        {"a file is last", rule("", event(kProcess) + ',' + event("")), kSubject},
        {"a process is last", rule("", event("") + ',' + event(kProcess)), kObject},
        {"a process without image", rule("", event("\"ObjectImage\":\"\"," + kProcess)), kSubject},
        {"a second rule", rule("", event(kProcess)) + ',' + rule(""), kObject},
    };
    ProcessTreeSelectorPeer::take();
    for (const auto& row : rows) {
        EXPECT_TRUE(Decoded(Document{.rules = row.rules}).ok);
        EXPECT_EQ(ProcessTreeSelectorPeer::take(), row.selected) << row.what;
    }
}

}  // namespace
}  // namespace zel_test
