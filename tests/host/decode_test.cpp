// zelhost decode: serialised messages go in, whole ones and damaged ones, and what is shown of them comes out.
#include <fmt/format.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>
#include <retrace.pb.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <random>

#include "host/commands/commands.h"
#include "host/lib/message.h"
#include "host/lib/message_reader.h"

namespace {

using namespace zelhost;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using vorn_retrace::vorn_trace_info;

// What a command line prints and how it ends.
struct Outcome {
    int code;
    std::string out;
    std::string err;
};
Outcome run(const std::vector<std::string>& arguments) {
    CLI::App app;
    const Action act = prepare_decode(app);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    int code = kUsage;
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        code = act();
    } catch (const CLI::ParseError& e) {
        std::cerr << e.what() << '\n';
    }
    std::string out = testing::internal::GetCapturedStdout();
    return {code, std::move(out), testing::internal::GetCapturedStderr()};
}

// An empty folder that is the working folder of a test.
class Decode : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(mkdtemp(folder_.data()), nullptr);
        std::filesystem::current_path(folder_);
    }
    void TearDown() override {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(folder_);
    }
    static void write(const char* name, std::string_view bytes) { std::ofstream(name) << bytes; }

    std::string folder_ = std::filesystem::temp_directory_path() / "decode_test.XXXXXX";
};

// A value in every field of every message.
void fill(Message& message, int& counter) {
    using F = FieldDescriptor;
    const auto& r = *message.GetReflection();
    for (int i = 0; i < message.GetDescriptor()->field_count(); ++i) {
        const F* const field = message.GetDescriptor()->field(i);
        const bool list = field->is_repeated();
        ++counter;
        switch (field->cpp_type()) {
            case F::CPPTYPE_INT32: r.SetInt32(&message, field, -counter); break;
            case F::CPPTYPE_UINT32: r.SetUInt32(&message, field, UINT32_MAX); break;
            case F::CPPTYPE_INT64: r.SetInt64(&message, field, INT64_MIN + counter); break;
            case F::CPPTYPE_UINT64: list ? r.AddUInt64(&message, field, 7) : r.SetUInt64(&message, field, ~0ul); break;
            case F::CPPTYPE_BOOL: r.SetBool(&message, field, true); break;
            case F::CPPTYPE_FLOAT: r.SetFloat(&message, field, 1.1f * static_cast<float>(counter)); break;
            case F::CPPTYPE_ENUM: r.SetEnumValue(&message, field, counter % 2 == 0 ? 1 : 1000 + counter); break;
            case F::CPPTYPE_STRING:
                list ? r.AddString(&message, field, "\"é\" \n") : r.SetString(&message, field, "text");
                break;
            case F::CPPTYPE_MESSAGE:
                fill(*(list ? r.AddMessage(&message, field) : r.MutableMessage(&message, field)), counter);
                break;
            default: FAIL() << field->full_name() << " is of a kind that the reader does not know";
        }
    }
}

TEST(MessageJson, IsThatOfProtobufForEveryFieldOfTheSchema) {
    vorn_trace_info message;
    int counter = 0;
    fill(message, counter);
    google::protobuf::util::JsonPrintOptions options;
    options.preserve_proto_field_names = true;
    std::string expected;
    ASSERT_TRUE(MessageToJsonString(message, &expected, options).ok());
    const std::string bytes = message.SerializeAsString();
    EXPECT_EQ(message_to_json(bytes.data(), bytes.size()), expected);
    EXPECT_EQ(message_from_json(expected), bytes);
}

// What the reader takes is what protobuf takes, and it holds the same; but for texts that are no UTF-8, which protobuf
// refuses.
void expect_as_protobuf(const std::string& bytes) {
    vorn_trace_info expected, got;
    const bool parsed = expected.ParseFromString(bytes);
    const Reading reading = read_message(bytes, got);
    ASSERT_EQ(!reading.broken && reading.bad_texts == 0, parsed) << testing::PrintToString(bytes);
    ASSERT_TRUE(!parsed || got.SerializeAsString() == expected.SerializeAsString()) << testing::PrintToString(bytes);
    ASSERT_TRUE(!reading.broken || reading.broken->offset <= bytes.size()) << testing::PrintToString(bytes);
}

// With lists, numbers of all kinds, a packed list and an unknown group, and short enough to be cut and changed
// everywhere.
std::string sample() {
    return message_from_json(R"({"agent_id":"agent","cmd":"TRACE_CMD_BASE_CHAIN","threat":{"alert_guid":"b6d3f55c",
        "threat_score":90.5,"alert_new_time":"1732489202600","alert_rule":[{"rule_id":"IOA-LNX-1001"},{"alert_event":[
        {"version":"1","op_time":"1732489200000","subject_process":{"process_path":"/usr/sbin/php-fpm8.2","thread_tid":"-1",
        "highlight":[{"str_data":"é"},{}]},"object_file_create":{"file_is_exist":true}}]}],"alert_tags":["one","two"]},
        "credible_event":{"rule":{"match_action":[{"alert_node_id":["1","18446744073709551615","300"]}]}}})") +
           "\xa3\x06\x0a\x03xyz\xa4\x06";
}

TEST(MessageReader, TakesWhatProtobufTakesOfMutatedMessages) {
    const google::protobuf::LogSilencer quiet;
    const std::string whole = sample();
    std::mt19937 random(1);
    const auto below = [&](size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random); };
    for (int i = 0; i < 20000 && !HasFatalFailure(); ++i) {
        std::string bytes = whole.substr(0, i % 4 == 0 ? below(whole.size()) + 1 : std::string::npos);
        for (size_t changes = below(4); changes > 0; --changes)
            bytes[below(bytes.size())] = static_cast<char>(random());
        expect_as_protobuf(bytes);
    }
}

TEST(MessageReader, GoesAsDeepAsProtobuf) {
    const google::protobuf::LogSilencer quiet;
    for (const size_t depth : {99, 100, 101}) {
        std::string bytes;
        for (size_t i = 0; i < depth; ++i) bytes += "\xfb\x07";  // field 127 as a group
        for (size_t i = 0; i < depth; ++i) bytes += "\xfc\x07";
        expect_as_protobuf(bytes);
    }
}

// Cut anywhere, a message shows more with each byte, and breaks at the byte up to which it was read.
TEST(MessageReader, ReadsACutMessageUpToTheCut) {
    const std::string whole = sample();
    uint64_t last_offset = 0;
    size_t last_size = 0;
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        vorn_trace_info message;
        const Reading reading = read_message(std::string_view(whole).substr(0, cut), message);
        const uint64_t offset = reading.broken ? reading.broken->offset : cut;
        const size_t size = message.ByteSizeLong();
        ASSERT_TRUE(last_offset <= offset && offset <= cut && last_size <= size && reading.bad_texts == 0) << cut;
        last_offset = offset;
        last_size = size;
    }
}

TEST_F(Decode, ShowsWhatTheBytesHold) {
    struct Row {
        int line;
        const char* hex;
        const char* out;
        const char* err;
    };
    constexpr auto kGroup =
        R"({"unknown":[{"number":100,"type":"group","value":[{"number":1,"type":"varint","value":"1"}]}]})";
    const Row rows[] = {
        {__LINE__, "", "{}", ""},
        {__LINE__, "0a 04 64 65\n6d 6F 28 01", R"({"agent_id":"demo","cmd":"TRACE_CMD_BASE_CHAIN"})", ""},
        {__LINE__, "2863 28e4ffffffffffffffff01", R"({"cmd":-28})", ""},
        // What the schema does not know: each wire type, and fields with another one than the schema's.
        {__LINE__, "a006ac02 a106 0100000000000000 a206 03616263 a506 01000000",
         R"({"unknown":[{"number":100,"type":"varint","value":"300"},{"number":100,"type":"fixed64","value":"1"},)"
         R"({"number":100,"type":"bytes","value":"abc"},{"number":100,"type":"fixed32","value":1}]})",
         ""},
        {__LINE__, "a306 0801 14 a406", kGroup, "breaks at byte 4, in 100.2: a group ends that did not begin"},
        {__LINE__, "a306 0801 a406", kGroup, ""},
        {__LINE__, "0801 2a00 a20602ff00",
         R"({"unknown":[{"number":1,"type":"varint","value":"1"},{"number":5,"type":"bytes","value":""},)"
         R"({"number":100,"type":"bytes","value":"\u00FF\u0000","latin1":true}]})",
         ""},
        // Texts that are no UTF-8, in a field and in a list.
        {__LINE__, "0a03 61c0e9 4206 6a0131 6a01ff",
         R"({"agent_id":"a\u00C0\u00E9","threat":{"alert_tags":["1","\u00FF"],"latin1":["alert_tags[1]"]},"latin1":["agent_id"]})",
         "wrong text at byte 3, in agent_id: no UTF-8 begins with the byte 0xc0 (2 such texts)"},
        // Breaks. A number is whole or not there, of a text what is there is shown, up to its last whole character.
        {__LINE__, "0a0561c3a9c3", R"({"agent_id":"aé"})",
         "breaks at byte 0, in agent_id: the text ends 1 byte after the buffer"},
        {__LINE__, "2801 9a", R"({"cmd":"TRACE_CMD_BASE_CHAIN"})",
         "breaks at byte 2: the key of a field is cut off by the end of the buffer"},
        {__LINE__, "420a 5a08 0a0161 1a017a", R"({"threat":{"alert_rule":[{"rule_id":"a","internal_id":"z"}]}})",
         "breaks at byte 10, in threat.alert_rule[0]: the message ends 2 bytes after the buffer"},
        {__LINE__, "4204 5a05 0a01 62", R"({"threat":{}})",
         "breaks at byte 2, in threat.alert_rule[0]: the message ends 3 bytes after the message that holds it"},
        {__LINE__, "28ffffffffffffffffffff01", "{}", "breaks at byte 0, in cmd: the number has more than 10 bytes"},
        {__LINE__, "2801 0a808080808001", R"({"cmd":"TRACE_CMD_BASE_CHAIN"})",
         "breaks at byte 2, in agent_id: the length has more than 5 bytes"},
        {__LINE__, "4205 250000", R"({"threat":{}})",
         "breaks at byte 2, in threat.threat_score: the number ends 2 bytes after the buffer"},
        {__LINE__, "0700", "{}", "breaks at byte 0: a field with the number 0"},
        {__LINE__, "0f00", "{}", "breaks at byte 0: field 1 has the wire type 7, which does not exist"},
        {__LINE__, "a306 0801", kGroup, "breaks at byte 4, in 100: the group does not end"},
    };
    for (const Row& row : rows) {
        const Outcome got = run({"--hex", row.hex});
        const std::string err = *row.err == '\0' ? "" : fmt::format("messages_tests: --hex: {}\n", row.err);
        EXPECT_EQ(got.out, std::string(row.out) + '\n') << "line " << row.line;
        EXPECT_EQ(got.err, err) << "line " << row.line;
        EXPECT_EQ(got.code, err.empty() ? kDone : kFailed) << "line " << row.line;
    }
}

TEST_F(Decode, ShowsTextForPeople) {
    write("m", message_from_json(R"({"agent_id":"a\u0007\u0085\"é\n","threat":{"alert_new_time":"1732489202600",
        "alert_old_time":"-1","risk_level":77,"alert_rule":[{"rule_id":"R"},{"rule_id":"S","alert_event":[{},{},{},{},{},{},
        {},{},{"version":"1"},{}],"tags":[{"str_data":"t"}]}]},"detect_cfg":{"begin_time":"1000","time_ago":"1000"},
        "trace_start":"253402300800000"})") +
                   "\x22\x02\xc3\x28\x25\x31\x32\x33\x34\xa3\x06\x08\x01\xa4\x06");
    const std::string expected = R"(m: 101 bytes
agent_id: "a\u0007\u0085\"é\n"
opr: "\xc3("
threat
  risk_level: 77
  alert_new_time: 1732489202600  2024-11-24T23:00:02.600Z
  alert_old_time: -1
  alert_rule[0].rule_id: "R"
  alert_rule[1]
    rule_id: "S"
    alert_event[0]: empty
    alert_event[1]: empty
    alert_event[2]: empty
    alert_event[3]: empty
    alert_event[4]: empty
    alert_event[5]: empty
    alert_event[6]: empty
    alert_event[7]: empty
    alert_event: ... 2 more
    tags[0].str_data: "t"
detect_cfg
  begin_time: 1000  1970-01-01T00:00:01.000Z
  time_ago: 1000
trace_start: 253402300800000
unknown 4 (opr is no fixed32): fixed32 875770417
unknown 100: group
  unknown 1: varint 1
)";
    const Outcome got = run({"--pretty", "m"});
    EXPECT_EQ(got.out, expected);
    EXPECT_EQ(got.err, "messages_tests: m: wrong text at byte 88, in opr: no UTF-8 begins with the byte 0xc3\n");
    const std::string all = run({"--pretty", "--all", "m"}).out;
    EXPECT_NE(all.find("    alert_event[8].version: 1\n    alert_event[9]: empty\n"), std::string::npos) << all;
    EXPECT_NE(run({"--pretty", "--color", "always", "m"}).out.find("\033[36magent_id\033[0m: \"a"), std::string::npos);

    vorn_trace_info message;
    message.set_alert_json(std::string(299, 'x') + "éy");
    write("long", message.SerializeAsString());
    EXPECT_EQ(run({"--pretty", "long"}).out,
              "long: 305 bytes\nalert_json: \"" + std::string(299, 'x') + "é\" ... 1 more byte\n");
}

// Each input is shown whatever is wrong with the others, and a failure names its input.
TEST_F(Decode, TakesSeveralInputs) {
    write("good", "\x0a\x01g");
    write("cut", "\x0a\x02g");
    write("empty", "");
    const Outcome got = run({"cut", "none", ".", "good", "empty", "--base64", "CgE/ KAE=", "--base64", "KAE"});
    EXPECT_EQ(got.out, R"({"agent_id":"?","cmd":"TRACE_CMD_BASE_CHAIN"}
{"cmd":"TRACE_CMD_BASE_CHAIN"}
{"agent_id":"g"}
{"agent_id":"g"}
{}
)");
    EXPECT_EQ(got.err, R"(messages_tests: cut: breaks at byte 0, in agent_id: the text ends 1 byte after the buffer
messages_tests: cannot open none: No such file or directory
messages_tests: cannot read .: Is a directory
)");
    EXPECT_EQ(got.code, kFailed);
    EXPECT_EQ(run({"--pretty", "empty", "good"}).out,
              "empty: 0 bytes\nno field is set\n\ngood: 3 bytes\nagent_id: \"g\"\n");
}

TEST_F(Decode, RefusesWrongCommandLines) {
    const std::pair<std::vector<std::string>, const char*> rows[] = {
        {{"--hex", "0a0"}, "--hex: the last byte lacks a hexadecimal digit"},
        {{"--hex", "0a 0g"}, "--hex: character 5 is no hexadecimal digit"},
        {{"--base64", "KAE=KAE="}, "--base64: character 4 is no base64 digit"},
        {{"--base64", "KAF"}, "--base64: the last byte lacks a base64 digit"},
        {{"--base64", "KAEBA"}, "--base64: the last byte lacks a base64 digit"},
        {{"--all"}, "--all requires --pretty"},
        {{"--sizes"}, "--sizes requires FILE"},
        {{"--sizes", "f", "--hex", "00"}, "--hex excludes --sizes"},
    };
    for (const auto& [arguments, err] : rows) {
        const Outcome got = run(arguments);
        EXPECT_EQ(got.code, kUsage);
        EXPECT_EQ(got.err, std::string(err) + '\n');
    }
}

TEST_F(Decode, ComparesSizesWithTheHistory) {
    struct Row {
        int line;
        size_t size;
        const char* history;  // null: no side file
        const char* out;
        const char* err;
    };
    const Row rows[] = {
        {__LINE__, 5, "5\n", "f: 5 bytes, as its history says (1 copy: 5)\n", ""},
        {__LINE__, 0, "1\n2\n3\n4\n5\n6\n7\n0\n",
         "f: 0 bytes, as its history says (8 copies: ... 2 earlier, 3, 4, 5, 6, 7, 0)\n", ""},
        {__LINE__, 3, "3\n5\n", "f: 3 bytes, 2 less than the last size of its history (2 copies: 3, 5)\n", ""},
        {__LINE__, 6, "5\n", "f: 6 bytes, 1 more than the last size of its history (1 copy: 5)\n", ""},
        {__LINE__, 5, "5", "", "its last line, 1, is cut off"},
        {__LINE__, 5, "5\n5 \n", "", "line 2 is no size"},
        {__LINE__, 5, "99999999999999999999\n", "", "line 1 is no size"},
        {__LINE__, 5, "", "", "it is empty"},
        {__LINE__, 5, nullptr, "", "cannot open f.size: No such file or directory"},
    };
    for (const Row& row : rows) {
        write("f", std::string(row.size, 'x'));
        std::filesystem::remove("f.size");
        if (row.history != nullptr) write("f.size", row.history);
        const Outcome got = run({"--sizes", "f", "f.size"});
        EXPECT_EQ(got.out, row.out) << "line " << row.line;
        const std::string err =
            fmt::format("messages_tests: f: 5 bytes, but nothing to compare with: f.size: {}\n", row.err);
        EXPECT_EQ(got.err, *row.err == '\0' ? "" : err) << "line " << row.line;
        EXPECT_EQ(got.code == kDone, got.out.find("as its") != std::string::npos) << "line " << row.line;
    }
    EXPECT_EQ(run({"--sizes", "none"}).err, "messages_tests: none has no size: No such file or directory\n");
}

}  // namespace
