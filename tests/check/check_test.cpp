// What libzelcheck.so says of a document, through its C interface: verdict, place and reason.
#include "check/zelcheck_host.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "host/lib/alert.h"
#include "platform/event_ids.h"
#include "platform/zel_support.h"

namespace zelhost {
namespace {

// A good document in which one text is replaced by another.
std::string good() { return Alert{.details = false}.text(); }
std::string with(std::string_view old, std::string_view now, std::string text = good()) {
    const size_t at = text.find(old);
    if (at == std::string::npos) ADD_FAILURE() << old << " is not in " << text;
    return at == std::string::npos ? text : text.replace(at, old.size(), now);
}
std::string without(std::string_view old) { return with(old, ""); }

std::string of_event(int type, const std::string& keys, const std::string& status = "Enable") {
    Alert alert{.details = false};
    alert.rules = {{.status = status, .events = {{.type = type, .keys = keys}}}, {.id = "other"}};
    return alert.text();
}
std::string of_tags(const std::string& tags) { return with(R"("internal_id":"i")", R"("tags":[)" + tags + "]"); }

std::string of_operations(const std::string& operations) {
    return with(R"("OpTime")", R"("PostOpr":)" + operations + R"(,"OpTime")");
}

// A place as it is written down in the tables: path, the bytes that are meant, and the reason.
struct Said {
    std::string path;
    std::string bytes;
    std::string reason;
    bool operator==(const Said&) const = default;
};
void PrintTo(const Said& said, std::ostream* out) {
    *out << '"' << said.path << "\" [" << said.bytes << "] " << said.reason;
}

class CheckTest : public ::testing::Test {
protected:
    CheckTest() {
        setenv("agentid", "me", 1);
        EXPECT_EQ(zelcheck_open(ZEL_LOG_WARN, &checker_), 0);
    }
    ~CheckTest() override { zelcheck_close(checker_); }

    // The filter remembers all documents of the process.
    const zelcheck_result& check(std::string text, uint32_t id = event_id::ioa_alert) {
        text_ = std::move(text);
        const zelcheck_result* result = nullptr;
        EXPECT_EQ(zelcheck_document(checker_, id, text_.data(), text_.size(), &result), 0);
        return *result;
    }
    Said said(const zelcheck_finding& finding) const {
        EXPECT_LE(finding.offset + finding.size, text_.size());
        return {finding.path, text_.substr(finding.offset, finding.size), finding.reason};
    }
    std::vector<Said> warnings(const zelcheck_result& result) const {
        std::vector<Said> all;
        for (size_t i = 0; i < result.warning_count; ++i) all.push_back(said(result.warnings[i]));
        return all;
    }

    zelcheck* checker_ = nullptr;
    std::string text_;
};

struct Row {
    int line;
    std::string document;
    Said said;
};

TEST_F(CheckTest, RefusesWithPlaceAndReason) {
    const std::string subject = "rule[0].event[0]";
    const std::string no_utf8 = ", which begins no whole character of UTF-8";
    const Row rows[] = {
        // clang-format off
        // keys
        {__LINE__, without(R"("risk_level":"high",)"), {"", "{", R"(the key "risk_level" is missing)"}},
        {__LINE__, with("risk_level", "risk_levle"),
         {"", "{", R"(the key "risk_level" is missing; "risk_levle" looks like it)"}},
        {__LINE__, with("SubjectPid", "subject_pid"),
         {subject, "{", R"(the key "SubjectPid" is missing; "subject_pid" looks like it)"}},
        {__LINE__, without(R"(,"Guid":"11111111-2222-4333-8444-000000000001")"), {"", "{", R"(the key "Guid" is missing)"}},
        {__LINE__, with("4001", R"("4001")"), {subject + ".SubjectPid", R"("4001")", R"("SubjectPid" is a string, a number is needed)"}},
        {__LINE__, with(R"("high")", "null"), {"risk_level", "null", R"("risk_level" is null, a string is needed)"}},
        {__LINE__, with(R"("high")", "{\"a\":1}"), {"risk_level", "{", R"("risk_level" is an object, a string is needed)"}},
        {__LINE__, with(R"("rule":[{)", R"("rule":[7,{)"), {"rule[0]", "7", R"(a number stands here, an object with the key "rule_id" is needed)"}},
        {__LINE__, "[]", {"", "[", R"(a list stands here, an object with the key "alert_type" is needed)"}},
        {__LINE__, "\"x\"", {"", "\"x\"", R"(a string stands here, an object with the key "alert_type" is needed)"}},
        {__LINE__, "\xEF\xBB\xBF{}", {"", "{", R"(the key "alert_type" is missing)"}},
        // numbers that name nothing
        {__LINE__, with(R"("alert_type":3)", R"("alert_type":23)"), {"alert_type", "23", "there is no alert type 23, types are 1 to 22"}},
        {__LINE__, with(R"("type":7)", R"("type":30)"), {subject + ".type", "30", "the agent takes no event of type 30, so the alert is lost"}},
        {__LINE__, with(R"("type":7)", R"("type":4e10)"), {subject + ".type", "4e10", "the agent takes no event of type 4e10, so the alert is lost"}},
        // texts, down to the byte
        {__LINE__, with("tool -d", "ab\x01" "c"), {subject + ".SubjectCmd", "\x01", R"("SubjectCmd" holds the byte 0x01, which no message may carry)"}},
        {__LINE__, with("tool -d", R"(\n\u00e4\ud83d\ude00\u0001)"), {subject + ".SubjectCmd", R"(\u0001)", R"("SubjectCmd" holds the byte 0x01, which no message may carry)"}},
        {__LINE__, with("tool -d", "\xC3\xA4\xE4\xB8z"), {subject + ".SubjectCmd", "\xE4", R"("SubjectCmd" holds the byte 0xe4)" + no_utf8}},
        {__LINE__, with("/tmp/gone", "\x80"), {subject + ".FilePath", "\x80", R"("FilePath" holds the byte 0x80)" + no_utf8}},
        {__LINE__, of_event(17, R"("Namespace":"","Name":"f)" "\x80" R"(","Query":"","User":"")"), {subject + ".Name", "\x80", R"("Name" holds the byte 0x80)" + no_utf8}},
        {__LINE__, with("8444-0", "8444-\x7F"), {"Guid", "\x7F", R"("Guid" holds the byte 0x7f, which no message may carry)"}},
        {__LINE__, with(R"("high")", R"("\u0002")", with(R"(:"e")", R"(:"\u0002")")),
         {"engine_ver", R"(\u0002)", R"("engine_ver" holds the byte 0x02, which no message may carry)"}},
        // syntax
        {__LINE__, "", {"", "", "the document is empty"}},
        {__LINE__, " \r\n", {"", "", "the document is empty"}},
        {__LINE__, R"({"alert_type":3)", {"", "", "the document ends before its JSON is complete"}},
        {__LINE__, std::string("{\"a\":\0 1}", 9), {"", std::string(1, '\0'), "a NUL byte ends the document before its JSON is complete"}},
        {__LINE__, R"({"a":1,})", {"", "}", "a key in quotes is needed here"}},
        {__LINE__, R"({"a" 1})", {"", "1", "a colon is needed here"}},
        {__LINE__, R"({"a":1 "b":2})", {"", "\"", "a comma or the object's closing bracket is needed here"}},
        {__LINE__, R"([1 2])", {"", "2", "a comma or the list's closing bracket is needed here"}},
        {__LINE__, R"([tru])", {"", "t", "a value is needed here"}},
        {__LINE__, R"([1,])", {"", "]", "a value is needed here"}},
        {__LINE__, R"([-])", {"", "-", "this is no number"}},
        {__LINE__, R"(["a\x"])", {"", "\\x", "there is no such escape"}},
        {__LINE__, R"({"a":"\u12"})", {"", "\\u", "four hexadecimal digits are needed behind this"}},
        {__LINE__, R"(["\ude00"])", {"", "\\ude00", "this is half a character, and the other half is missing"}},
        {__LINE__, R"({"a":"b})", {"", "\"b}", "the text that begins here does not end"}},
        {__LINE__, std::string(1001, '['), {"", "[", "the brackets are nested too deeply"}},
        // clang-format on
    };
    for (const Row& row : rows) {
        const zelcheck_result& result = check(row.document);
        EXPECT_EQ(result.verdict, ZELCHECK_REFUSED) << "line " << row.line;
        ASSERT_NE(result.refusal, nullptr) << "line " << row.line;
        EXPECT_EQ(said(*result.refusal), row.said) << "line " << row.line;
        EXPECT_GT(result.line_count, 0u) << "line " << row.line;
        check(good());  // a refused document leaves nothing behind
    }
}

TEST_F(CheckTest, WarnsOfWhatTheAgentTakesOtherwise) {
    const auto reads = [](const char* name, const char* given, const char* read) {
        return std::string("\"") + name + "\" is " + given + ", and the agent reads " + read;
    };
    const std::string operation = "; the post-operation is left out";
    const std::string lost = "; it and the elements behind it are lost";
    const Row rows[] = {
        // clang-format off
        {__LINE__, good() + " \n}x", {"", "}x", "the text behind the document's last bracket is not read"}},
        {__LINE__, good() + std::string("\0{}", 3), {"", std::string(1, '\0'), "a NUL byte ends the document; what follows is not read"}},
        {__LINE__, with(R"("score":5)", R"("score":5,"score":6)"), {"rule[0].score", "6", R"("score" stands twice; the agent reads the first one)"}},
        {__LINE__, with(R"("score":5)", R"("score":5,"Score":6)"),
         {"rule[0].Score", "6", R"("Score" is the same key as "score" before it; the agent reads the first one)"}},
        {__LINE__, with(R"("score":5)", R"("score":5,"a b":[1])"), {"rule[0][\"a?b\"]", "[", R"(nothing reads "a b")"}},
        {__LINE__, with("1000", "9007199254740993"), {"rule[0].event[0].OpTime", "9007199254740993", reads("OpTime", "9007199254740993", "9007199254740992")}},
        {__LINE__, with("1000", "1e300"), {"rule[0].event[0].OpTime", "1e300", reads("OpTime", "1e300", "-9223372036854775808")}},
        {__LINE__, with("4001", "4294967295"), {"rule[0].event[0].SubjectPid", "4294967295", reads("SubjectPid", "4294967295", "2147483647")}},
        {__LINE__, with("4001", "1.5"), {"rule[0].event[0].SubjectPid", "1.5", reads("SubjectPid", "1.5", "1")}},
        {__LINE__, of_event(3, R"("ObjectPid":1,"ObjectTid":1,"ObjectImage":"","ObjectCmd":"","ObjectCreateTime":1,"ObjectUser":"",)"
                               R"("StartAddress":"0x7f","StartModule":"","StartFunction":"")"),
         {"rule[0].event[0].StartAddress", "\"0x7f\"", reads("StartAddress", "\"0x7f\"", "0")}},
        {__LINE__, with("tool -d", R"(\u00e4\u0000b)"), {"rule[0].event[0].SubjectCmd", R"(\u0000)", R"("SubjectCmd" ends at this escape for the agent)"}},
        {__LINE__, of_operations(R"([{"Type":"1"}])"),
         {"rule[0].event[0].PostOpr[0].Type", "\"1\"", R"("Type" is a string, a number is needed)" + operation}},
        {__LINE__, of_operations(R"([{}])"), {"rule[0].event[0].PostOpr[0]", "{", R"(the key "Type" is missing)" + operation}},
        {__LINE__, of_tags(R"("a","\u0003","b")"), {"rule[0].tags[1]", R"(\u0003)", "the text holds the byte 0x03, which no message may carry" + lost}},
        // clang-format on
    };
    int number = 0;
    for (const Row& row : rows) {
        const std::string id = "\"W-" + std::to_string(++number) + '"';
        const size_t at = row.document.find("\"R-1\"");
        const zelcheck_result& result =
            check(at == std::string::npos ? row.document : with("\"R-1\"", id, row.document));
        EXPECT_EQ(result.refusal, nullptr) << "line " << row.line;
        EXPECT_THAT(warnings(result), ::testing::ElementsAre(row.said)) << "line " << row.line;
    }
}

TEST_F(CheckTest, SaysNothingOfNumbersThatAreReadAsTheyStand) {
    for (const char* number : {"-1", "9007199254740992", "1.0", "1e3", "-0", "0.0"})
        EXPECT_THAT(warnings(check(with("1000", number))), ::testing::IsEmpty()) << number;
}

TEST_F(CheckTest, KnowsRepeatsAndWhatIsNotReported) {
    const std::string text = with("\"R-1\"", "\"repeat\"");
    EXPECT_EQ(check(text).verdict, ZELCHECK_ACCEPTED);
    EXPECT_STREQ(check(text).guid, "11111111-2222-4333-8444-000000000001");
    EXPECT_EQ(check(text).verdict, ZELCHECK_REPEAT);
    EXPECT_EQ(check(with("Enable", "Trigger")).verdict, ZELCHECK_SKIPPED);
    EXPECT_EQ(check(with("\"R-1\"", "\"memory\"", Alert{.type = 6}.text()), event_id::memory_trojan).verdict,
              ZELCHECK_ACCEPTED);
    EXPECT_EQ(check("{").guid, nullptr);
}

TEST_F(CheckTest, ADocumentThatEndsTheProcessIsNamed) {
    const std::string keys = R"("FilePath":"","PostTime":5,"PreTime":0)";
    const zelcheck_result& result = check(of_event(9, keys));
    EXPECT_EQ(result.verdict, ZELCHECK_FATAL);
    ASSERT_NE(result.refusal, nullptr);
    const Said fatal = said(*result.refusal);
    EXPECT_EQ(fatal.path, "rule[0].event[0].PreTime");
    EXPECT_EQ(fatal.bytes, "0");
    EXPECT_THAT(fatal.reason, ::testing::StartsWith("\"PreTime\" is 0, and the agent's process would end here: "));
    // Nothing is built of a rule that is removed, and the checker goes on.
    EXPECT_NE(check(of_event(9, keys, "Trigger")).verdict, ZELCHECK_FATAL);
}

}  // namespace
}  // namespace zelhost
