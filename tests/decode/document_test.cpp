#include "decode/document.h"

namespace zel_test {
namespace {

using zel::Words;

std::string best_rule(const ST_BUF_DATA& d) { return "desc=" + d.strBestRuleDesc + " name=" + d.strBestRuleName; }
std::string times(const ST_BUF_DATA& d) {
    return "earliest=" + std::to_string(d.llEarliestOpTime) + " latest=" + std::to_string(d.llLatestOpTime);
}

// A document that passes takes with it what refused ones left.
void start_afresh() { EXPECT_TRUE(Decoded(Document{}).ok); }

// That each value reaches its place is seen in the message that is made of it.
TEST(Document, TakesEachKeyInOrderAndNamesTheFirstThatFails) {
    const std::tuple<std::string, Words, std::string, Document (*)(const std::string&)> rows[] = {
        // clang-format off
        {kRootKeys, Words::not_string, "", [](auto& text) { return Document{.root = text}; }},
        {kContainerKeys, Words::not_string, "",
         [](auto& text) { return Document{.type = 6, .root = joined({members(kRootKeys), text})}; }},
        {"malicious_key:S", Words::not_string, "",
         [](auto& text) { return Document{.type = 1, .root = joined({members(kRootKeys), text})}; }},
        {"msg:S", Words::not_string, kInInfo, [](auto& text) { return Document{.type = 7, .info = '{' + text + '}'}; }},
        {"ScenarioID:S", Words::not_type, kInInfo, [](auto& text) {
            return Document{.type = 2, .info = "{\"ScenarioInfo\":" + object(text, "\"ProcessSet\":[]") + '}'}; }},
        {kRuleKeys, Words::not_string, kInRule, [](auto& text) { return Document{.rules = rule("", "", text)}; }},
        {kSubjectKeys, Words::not_type, kInEvent,
         [](auto& text) { return Document{.rules = rule("", event("", text))}; }},
        {kSubjectKeys, Words::not_type, "|E GetRawEventInfoEx error.|E GetProcessSet failed!" + kInInfo,
         [](auto& text) { return Document{.type = 2, .info = scenario(event("", text))}; }},
        // clang-format on
    };
    for (const auto& [keys, words, behind, place] : rows) {
        check_keys(keys, words, behind, [&](const std::string& text, const std::string& values) {
            const Decoded alert(place(text));
            EXPECT_EQ(alert.ok, !values.empty()) << keys;
            return alert.log;
        });
    }
    EXPECT_EQ(Decoded(Document{.type = 1}).data.strMaliciousKey, "6");
    EXPECT_EQ(Decoded(Document{.type = 7}).data.strExtendedMsg, "6");
}

// No document is asked for its link set; the function is there for a caller to come.
TEST(Document, LinkSetIsReadUpToTheFirstThatFails) {
    const std::string link = R"({"SrcNodeGuid":"s","DstNodeGuid":"d","OpTime":5,"LinkType":6})";
    const std::tuple<std::string, bool, std::string> rows[] = {
        {"{}", false, ""},
        {R"({"LinkSet":[]})", true, ""},
        {R"({"LinkSet":[)" + link + ',' + link + "]}", true, "s d 5 6 s d 5 6 "},
        {R"({"LinkSet":[)" + link + R"(,{"SrcNodeGuid":"s"}]})", false, "s d 5 6 "},
    };
    for (const auto& [text, ok, values] : rows) {
        const Tree json = parse(text);
        std::vector<ST_LINK_SET> links;
        EXPECT_EQ(CEventHandle::GetLinkSet(json.get(), links), ok) << text;
        std::string seen;
        for (const ST_LINK_SET& l : links) seen += dump(l.strSrcNodeGuid, l.strDstNodeGuid, l.llOpTime, l.uLinkType);
        EXPECT_EQ(seen, values) << text;
        EXPECT_EQ(take_log().empty(), ok) << text;
    }
}

TEST(Document, IsRefusedWithTheLinesThatSayWhy) {
    const std::string no_info = "E get json value error.key:ExtendedInfo" + kInInfo;
    const std::string no_value = "E get json value error.";
    const std::tuple<const char*, Document, std::string> rows[] = {
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
    for (const auto& [what, document, log] : rows) {
        const Decoded alert(document);
        EXPECT_EQ(alert.log, log) << what;
        EXPECT_EQ(alert.ok, log.empty()) << what;
    }
    EXPECT_EQ(Decoded("").log + Decoded("{\"Guid\"").log, "") << "no JSON";
    EXPECT_EQ(Decoded("[1]").log, no_value + '|' + no_value) << "no object";
    EXPECT_EQ(Decoded("{\"alert_type\":3," + members(kRootKeys) + '}').log,
              no_value + "|E GetRuleInfo failed!|" + no_value);
    for (const int type : {0, 30, 31, 32, 33, 1000}) {
        const std::string number = std::to_string(type);
        EXPECT_EQ(Decoded(Document{.rules = rule("", event("\"type\":" + number))}).log,
                  "E The event is unknown.event:" + number + "|E GetEventPrivateInfo error!" + kInEvent);
    }
}

std::string scored(int score, const std::string& desc, const std::string& name) {
    return rule("\"score\":" + std::to_string(score) + R"(,"rule_desc":")" + desc + R"(","rule_name":")" + name + '"');
}

TEST(Document, ItsBestRuleIsTheFirstOfTheHighestScore) {
    const std::tuple<const char*, std::string, std::string, std::string> rows[] = {
        {"equal scores", scored(5, "a", "A"), scored(5, "b", "B"), "desc=a name=A"},
        {"higher score behind", scored(5, "a", "A"), scored(6, "b", "B"), "desc=b name=B"},
        {"lower score behind", scored(6, "a", "A"), scored(5, "b", "B"), "desc=a name=A"},
        {"better one without name", scored(5, "a", "A"), scored(6, "b", ""), "desc=b name=A"},
        {"lower score with a name", scored(5, "a", ""), scored(4, "b", "B"), "desc=a name="},
        {"no score above 0", scored(0, "a", "A"), scored(-3, "b", "B"), "desc= name="},
    };
    start_afresh();
    for (const auto& [what, first, second, best] : rows)
        EXPECT_EQ(best_rule(Decoded(Document{.rules = first + ',' + second}).data), best) << what;
}

std::string events_at(const std::vector<int>& times) {
    std::vector<std::string> events;
    for (const int time : times) events.push_back(event("\"OpTime\":" + std::to_string(time)));
    return joined(events);
}

TEST(Document, ItsTimesAreThoseOfAllEvents) {
    const std::tuple<const char*, std::vector<int>, std::vector<int>, std::string> rows[] = {
        {"any order", {19, 7, 99, 20}, {}, "earliest=7 latest=99"},
        {"processes count as well", {19}, {2, 99}, "earliest=2 latest=99"},
        {"a 0 is forgotten", {19, 0, 17, 18}, {}, "earliest=17 latest=19"},
        {"a 0 at the end stays", {19, 0}, {}, "earliest=0 latest=19"},
        {"the latest is never below 0", {-4, -2}, {}, "earliest=-4 latest=0"},
    };
    start_afresh();
    for (const auto& [what, rule_events, process_set, expected] : rows) {
        const Decoded alert(
            Document{.type = 2, .rules = rule("", events_at(rule_events)), .info = scenario(events_at(process_set))});
        EXPECT_EQ(times(alert.data), expected) << what;
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
    const std::tuple<int, int, int> rows[] = {{6, 7, 100}, {6, 6, 10}, {2, 9, 10}};
    for (const auto& [type, score, confidence] : rows) {
        const std::string keys = "\"confidence\":10,\"score\":" + std::to_string(score);
        const Decoded alert(
            Document{.type = type, .rules = rule(keys), .info = type == 2 ? scenario("") : R"({"msg":""})"});
        EXPECT_EQ(alert.data.vecRule.at(0).nConfidence, confidence) << type << " score " << score;
    }
}

TEST(Document, ItsGuidIsCutTo37CharactersEvenWhenItIsRefused) {
    const std::string guid = "01234567-89ab-cdef-0123-456789abcdef";
    const std::tuple<int, std::string, std::string> rows[] = {
        {3, "short", "short"}, {3, guid + 'x', guid + 'x'}, {3, guid + "xy", guid + 'x'}, {99, guid, guid}};
    for (const auto& [type, sent, kept] : rows) {
        const Decoded alert(Document{.type = type, .guid = '"' + sent + '"'});
        EXPECT_EQ(alert.data.strGuid, kept);
        std::string padded = kept;
        padded.resize(sizeof alert.node.szGuid);
        EXPECT_EQ(memcmp(alert.node.szGuid, padded.data(), padded.size()), 0) << sent;
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

const std::string kSubject = "pid 8 of 12 10", kObject = "pid 31 of 33 /obj";

TEST(PostOperation, AsksForChecksAndSelects) {
    const std::string file = R"("type":7)", nothing = "pid 0 of 0 ";
    const std::tuple<std::string, std::string, uint32_t, std::string, std::string> rows[] = {
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
    for (const auto& [given, operations, checked, selected, log] : rows) {
        ProcessTreeSelector::Instance().SetSelection(0, 0, "");  // so that the last event selects nothing
        const Decoded alert(Document{.rules = rule("", event(given + ",\"PostOpr\":" + operations))});
        EXPECT_EQ(alert.data.vecRule.at(0).vecEvent.at(0).uPostOpr, checked) << operations;
        EXPECT_EQ(ProcessTreeSelectorPeer::take(), selected) << operations;
        EXPECT_EQ(alert.log, log) << operations;
    }
}

TEST(Selection, TakesTheLastEventOfTheFirstListThatHasOne) {
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"no event", rule("", ""), "none"},
        {"a file is last", rule("", event(kProcess) + ',' + event("")), kSubject},
        {"a process is last", rule("", event("") + ',' + event(kProcess)), kObject},
        {"a remote thread is last", rule("", event(R"("type":3,)" + kProcess)), kSubject},
        {"a process without image", rule("", event("\"ObjectImage\":\"\"," + kProcess)), kSubject},
        {"a second rule", rule("", event(kProcess)) + ',' + rule(""), kObject},
    };
    ProcessTreeSelectorPeer::take();
    for (const auto& [what, rules, selected] : rows) {
        EXPECT_TRUE(Decoded(Document{.rules = rules}).ok);
        EXPECT_EQ(ProcessTreeSelectorPeer::take(), selected) << what;
    }
}

}  // namespace
}  // namespace zel_test
