// Chains and their pictures: messages go in, vertices, DOT and SVG come out.
#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>
#include <retrace.pb.h>

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include "host/commands/graph.h"
#include "host/commands/graph_drawing.h"
#include "host/commands/graph_html.h"
#include "host/lib/chain.h"
#include "host/lib/chain_fold.h"
#include "host/lib/chain_text.h"
#include "host/lib/failure.h"
#include "host/lib/message.h"
#include "host/lib/own_process.h"

namespace {

using namespace zelhost;
using namespace vorn_retrace;
using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using testing::HasSubstr;
using testing::Not;

vorn_trace_info message_of(const std::string& json) {
    vorn_trace_info message;
    message.ParseFromString(message_from_json(json));
    return message;
}

// A process 1 with files as its leaves, numbered from 2.
vorn_trace_info star(int files) {
    vorn_trace_info message;
    vorn_trace_event& chain = *message.mutable_trace_event();
    chain.add_process_list()->set_node_id(1);
    for (int i = 0; i < files; ++i) {
        chain.add_file_create_list()->set_node_id(static_cast<uint64_t>(i + 2));
        behavior_edge& edge = *chain.add_edge_list();
        edge.set_table_index_begin(1);
        edge.set_table_index_end(static_cast<uint64_t>(i + 2));
        edge.set_type(VORN_TRACE_FILE_CREATE);
    }
    return message;
}

// --- the tables against the schema ---

// Sets the fields that the texts of a row name, and expects to see each of them in the vertex.
void expect_row_shows_its_fields(const ChainKind& kind, const FieldDescriptor& list) {
    vorn_trace_info message;
    auto& chain = *message.mutable_trace_event();
    google::protobuf::Message& vertex = *chain.GetReflection()->AddMessage(&chain, &list);
    std::vector<std::string> values;
    for (const std::string_view text : {kind.name, kind.second, kind.third})
        for (size_t at = text.find('{'); at != std::string_view::npos; at = text.find('{', at + 1)) {
            std::string name(text.substr(at + 1, text.find('}', at) - at - 1));
            name.erase(0, name.find_first_not_of('/'));
            const FieldDescriptor* const field = vertex.GetDescriptor()->FindFieldByName(name);
            ASSERT_NE(field, nullptr) << kind.list << " has no " << name;
            values.push_back(std::to_string(values.size() + 71));
            if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING)
                vertex.GetReflection()->SetString(&vertex, field, values.back());
            else if (field->cpp_type() == FieldDescriptor::CPPTYPE_UINT64)
                vertex.GetReflection()->SetUInt64(&vertex, field, std::stoul(values.back()));
            else
                values.pop_back();
        }
    const Chain shown = chain_of(message);
    ASSERT_EQ(shown.vertices.size(), 1U) << kind.list;
    std::string text = shown.vertices[0].name;
    for (const std::string& line : shown.vertices[0].lines) text += "\n" + line;
    for (const std::string& value : values) EXPECT_THAT(text, HasSubstr(value)) << kind.list;
}

TEST(ChainKinds, EveryListOfVerticesHasARowThatShowsItsFields) {
    const Descriptor& chain = *vorn_trace_event::descriptor();
    size_t rows = 0;
    for (int i = 0; i < chain.field_count(); ++i) {
        const FieldDescriptor& list = *chain.field(i);
        if (!list.is_repeated() || list.name() == "edge_list") continue;
        const auto row = std::ranges::find(chain_kinds(), list.name(), &ChainKind::list);
        ASSERT_NE(row, chain_kinds().end()) << "no row for " << list.name();
        ++rows;
        EXPECT_EQ(list.message_type()->field(0)->name(), "node_id");
        expect_row_shows_its_fields(*row, list);
    }
    EXPECT_EQ(rows, chain_kinds().size());
}

TEST(ChainKinds, EveryTypeOfEdgeHasAWord) {
    for (int type = 1; type < VORN_TRACE_EVENT_TYPE_ARRAYSIZE; ++type) EXPECT_NE(edge_word(type), edge_word(0)) << type;
    for (const int type : {-1, VORN_TRACE_EVENT_TYPE_ARRAYSIZE}) EXPECT_EQ(edge_word(type), edge_word(0));
}

// --- texts ---

TEST(ChainText, IsMadeFitToBeDrawn) {
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"a text stays", "naïve 日本 \xF0\x9F\x90\x9A", "naïve 日本 \xF0\x9F\x90\x9A"},
        {"lone and cut-off bytes", "a\xFFz\xE6\x97", "a\uFFFDz\uFFFD\uFFFD"},
        {"an overlong form, a surrogate", "\xC0\xAF|\xED\xA0\x80", "\uFFFD\uFFFD|\uFFFD\uFFFD\uFFFD"},
        {"controls become pictures", std::string("a\0\n\x1B\x7F", 5), "a\u2400\u240A\u241B\u2421"},
        {"what turns the direction", "exe.\u202Egpj", "exe.\uFFFDgpj"},
        {"no character of XML", "\uFFFE", "\uFFFD"},
    };
    for (const auto& [what, bytes, expected] : rows) EXPECT_EQ(clean_text(bytes), expected) << what;
    EXPECT_EQ(repair_utf8("\t\xFF\n"), "\t\uFFFD\n");
}

TEST(ChainText, IsCutByCharacters) {
    EXPECT_EQ(cut_end("日本語", 3), "日本語");
    EXPECT_EQ(cut_end("日本語語", 3), "日本…");
    EXPECT_EQ(cut_middle("/usr/lib/日本語", 12), "/usr/lib/日本語");
    EXPECT_EQ(cut_middle("/usr/lib/x/日本語", 10), "/us…/x/日本語");
}

TEST(ChainText, TimesThatNoClockShowsStayNumbers) {
    EXPECT_EQ(time_text(1732489200012), "2024-11-24 23:00:00.012 UTC");
    EXPECT_EQ(time_text(INT64_MIN), "-9223372036854775808");
    EXPECT_EQ(time_text(INT64_MAX), "9223372036854775807");
}

// --- DOT ---

constexpr const char* kProcesses = R"("process_list":[
    {"node_id":1,"process_id":7,"process_path":"/bin/sh","process_user":"root","process_commandline":"sh -c evil.example"},
    {"node_id":2,"process_id":8,"process_path":"C:\\new\\curl"}])";

TEST(GraphDot, HasVerticesEdgesAndMarks) {
    const std::tuple<const char*, std::string, std::vector<std::string>> rows[] = {
        {"a process is a box with name, pid, user and command line",
         std::string(R"("trace_event":{)") + kProcesses + "}",
         {"<B>sh</B><BR/><FONT POINT-SIZE=\"9\">pid 7, root</FONT><BR/><FONT POINT-SIZE=\"9\">sh -c "
          "evil.example</FONT>",
          "<B>curl</B>"}},
        {"edges are numbered in time",
         std::string(R"("trace_event":{)") + kProcesses +
             R"(,"edge_list":[{"table_index_begin":2,"table_index_end":1,"time":9,"type":"VORN_TRACE_PROCESS_INJECT"},
                {"table_index_begin":1,"table_index_end":2,"time":5,"type":"VORN_TRACE_PROCESS"}]})",
         {"v0 -> v1", "label=\"1 starts\"", "v1 -> v0", "label=\"2 injects into\""}},
        {"what no list holds has a vertex all the same",
         R"("trace_event":{"edge_list":[{"table_index_begin":5,"table_index_end":6,"type":99}]})",
         {"unknown vertex 5", "unknown vertex 6", "1 acts on", "not in the chain"}},
        {"an edge of a rule marks both ends",
         std::string(R"("threat":{"alert_rule":[{"rule_id":"R"}]},"trace_event":{)") + kProcesses +
             R"(,"edge_list":[{"table_index_begin":1,"table_index_end":2,"rule_id":"R"}]})",
         {"class=\"process named\"", "class=named", "named by a rule"}},
        {"a text that a rule highlights marks the vertex",
         std::string(R"("threat":{"alert_rule":[{"alert_event":[{"highlight":[{"str_data":"evil.example"}]}]}]},)") +
             R"("trace_event":{)" + kProcesses + "}",
         {"class=\"process hit\"", "a rule&#39;s highlight"}},
        {"the title has severity, name and time",
         R"("threat":{"risk_level":"VORN_RISK_LEVEL_HIGH","alert_name":"A & <B>"},"trace_start":1732489200000,
            "trace_end":1732489201000,"trace_event":{"reg_set_list":[{"reg_key":"K","reg_name":"n","reg_value":"v"}]})",
         {"High · A &amp; &lt;B&gt;", "2024-11-24 23:00:00.000 UTC to 2024-11-24 23:00:01.000 UTC", "n = v",
          "shape=folder"}},
        {"quotes, backslashes and brackets are text",
         R"("trace_event":{"file_create_list":[{"file_path":"C:\\N\\\"<i>&lt;"}]})",
         {R"(C:\\N\\&quot;&lt;i&gt;&amp;lt;)"}},
        {"a long text is cut",
         R"("trace_event":{"file_create_list":[{"file_path":")" + std::string(100'000, 'x') + "\"}]}",
         {"<B>xxxxxxxxxxxxxx…xxxxxxxxxxxxxxxxxxxxxxxxxxxxx</B>"}},
    };
    for (const auto& [what, json, parts] : rows) {
        const std::string dot = draw_chain(chain_of(message_of("{" + json + "}")), Picture::dot);
        for (const std::string& part : parts) EXPECT_THAT(dot, HasSubstr(part)) << what;
        EXPECT_LT(dot.size(), 10'000U) << what;
    }
}

TEST(GraphSvg, ShowsTextsAsTheyAre) {
    const auto message = message_of(
        R"({"trace_event":{"file_create_list":[{"node_id":1,"file_path":"\\N \\G \\\\ &lt;b&gt; <script>"}],
            "edge_list":[{"table_index_begin":1,"table_index_end":1}]}})");
    const std::string svg = draw_chain(chain_of(message), Picture::svg);
    EXPECT_THAT(svg, HasSubstr(R"(\N \G \\ &amp;lt;b&amp;gt; &lt;script&gt;)"));
    EXPECT_THAT(svg, HasSubstr("id=\"v0\" class=\"node file\""));
    EXPECT_THAT(svg, Not(HasSubstr("<script")));
}

TEST(GraphPng, IsOne) { EXPECT_TRUE(draw_chain(chain_of(star(3)), Picture::png).starts_with("\x89PNG\r\n\x1A\n")); }

// A library that is given what an attacker wrote may crash, and then says so and no more.
TEST(OwnProcess, TellsHowTheWorkEnded) {
    const std::tuple<std::function<std::string()>, std::string> rows[] = {
        {[]() -> std::string { throw std::runtime_error("reason"); }, "cannot draw: reason"},
        {[]() -> std::string {
             std::raise(SIGKILL);
             return {};
         },
         "cannot draw: Killed"},
        {[]() -> std::string {
             std::raise(SIGALRM);
             return {};
         },
         "cannot draw: not done after 60 s"},
        {[]() -> std::string { _exit(7); }, "cannot draw: its process ended with status 7"},
    };
    for (const auto& [work, expected] : rows) try {
            in_own_process("draw", work);
            ADD_FAILURE() << expected;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.what(), expected);
        }
    const std::string large(300'000, 'x');
    EXPECT_EQ(in_own_process("draw", [&] { return large; }), large);
}

// --- folding ---

struct Folded {
    size_t vertices, edges;
    std::string last, note;
    bool operator==(const Folded&) const = default;
};
void PrintTo(const Folded& folded, std::ostream* out) {
    *out << folded.vertices << " vertices, " << folded.edges << " edges, " << folded.last << ", " << folded.note;
}
Folded folded(const vorn_trace_info& message, const FoldLimits& limits = {}) {
    const Chain chain = fold_chain(chain_of(message), limits);
    return {chain.vertices.size(), chain.edges.size(), chain.vertices.back().name, chain.note};
}

TEST(Fold, LeavesOfOneParentAndKindBecomeOne) {
    EXPECT_EQ(folded(star(299)), (Folded{300, 299, "file", ""}));
    EXPECT_EQ(folded(star(312)), (Folded{2, 1, "312 files", "313 vertices, drawn as 2"}));
    const std::string dot = draw_chain(fold_chain(chain_of(star(312))), Picture::dot);
    EXPECT_THAT(dot, HasSubstr("312 files"));
    EXPECT_THAT(dot, HasSubstr("1-312 creates ×312"));

    // A leaf of another kind stays by itself, and so does what has an edge with a second vertex or is hit by a rule.
    vorn_trace_info mixed = star(400);
    mixed.mutable_trace_event()->add_dns_query_list()->set_node_id(900);
    mixed.mutable_trace_event()->mutable_file_create_list(7)->add_highlight();
    for (const auto& [from, to] : {std::pair{1, 900}, {2, 3}}) {
        behavior_edge& edge = *mixed.mutable_trace_event()->add_edge_list();
        edge.set_table_index_begin(static_cast<uint64_t>(from));
        edge.set_table_index_end(static_cast<uint64_t>(to));
    }
    const Chain chain = fold_chain(chain_of(mixed));
    std::vector<std::string> names;
    for (const ChainVertex& vertex : chain.vertices) names.push_back(vertex.name);
    EXPECT_THAT(names, testing::UnorderedElementsAre("process", "DNS query", "file", "file", "file", "397 files"));
}

// Chains that no folding of leaves makes small.
TEST(Fold, WhatIsTooLargeKeepsWhatLiesNearTheAlert) {
    vorn_trace_info line, dense;
    for (uint64_t i = 1; i <= 2000; ++i) {
        line.mutable_trace_event()->add_process_list()->set_node_id(i);
        behavior_edge& edge = *line.mutable_trace_event()->add_edge_list();
        edge.set_table_index_begin(i);
        edge.set_table_index_end(i % 2000 + 1);  // a circle
    }
    line.mutable_trace_event()->mutable_process_list(1499)->add_highlight();
    const Chain chain = fold_chain(chain_of(line), {.vertices = 20});
    EXPECT_EQ(chain.vertices.size(), 12U);
    EXPECT_EQ(std::ranges::count(chain.vertices, Mark::hit, &ChainVertex::mark), 1);
    EXPECT_EQ(chain.note, "2000 vertices, drawn as 12");

    // Nothing hangs together with anything.
    vorn_trace_info loose;
    for (uint64_t i = 1; i <= 1000; ++i) loose.mutable_trace_event()->add_process_list()->set_node_id(i);
    EXPECT_EQ(folded(loose), (Folded{151, 0, "850 more", "1000 vertices, drawn as 151"}));

    for (uint64_t i = 0; i < 100'000; ++i) {
        behavior_edge& edge = *dense.mutable_trace_event()->add_edge_list();
        edge.set_table_index_begin(i % 317);
        edge.set_table_index_end(i * 7919 % 283);
    }
    const Chain small = fold_chain(chain_of(dense));
    EXPECT_LE(small.vertices.size(), 300U);
    EXPECT_EQ(small.edges.size(), 600U);
    EXPECT_THAT(small.note, HasSubstr(" of 100000 edges are not drawn"));
    EXPECT_THAT(draw_chain(small, Picture::svg), HasSubstr("id=\"e599\""));
}

TEST(GraphPage, StaysBelow2MB) {
    vorn_trace_info message = star(0);
    for (int i = 0; i < 250; ++i) {
        process_vertex& process = *message.mutable_trace_event()->add_process_list();
        process.set_process_commandline(std::string(20'000, '<'));
        process.set_process_path("/bin/p" + std::to_string(i));
    }
    const std::string page = chain_page(chain_of(message));
    EXPECT_LT(page.size(), 2'000'000U);
    EXPECT_THAT(page, HasSubstr("\"p249\""));
    EXPECT_THAT(page, HasSubstr("\\u003c\\u003c"));
    EXPECT_THAT(page, Not(HasSubstr("<<")));
}

// --- what is read ---

std::string line_of(const std::string& guid, int event = 770) {
    return R"({"event":)" + std::to_string(event) + R"(,"guid":")" + guid + R"(","message":{"agent_id":")" + guid +
           "\"}}\n";
}

TEST(FindTrace, TakesTheTraceOutOfWhatTheFileHolds) {
    const std::string bad_utf8 = "\n\x02z\xFF";
    const std::tuple<const char*, std::string, std::string, std::string, size_t> rows[] = {
        {"the first trace", line_of("x", 769) + line_of("a") + line_of("b"), "",
         "\n\x01"
         "a",
         0},
        {"that of an alert", line_of("a") + line_of("b"), "b",
         "\n\x01"
         "b",
         0},
        {"byte-order mark, empty lines, comments, CRLF", "\xEF\xBB\xBF\r\n# x\r\n" + line_of("a"), "",
         "\n\x01"
         "a",
         0},
        {"a last line without end", line_of("a").substr(0, line_of("a").size() - 1), "",
         "\n\x01"
         "a",
         0},
        {"what is no JSON is skipped", "{\"event\":77\n{}x\n" + line_of("a"), "",
         "\n\x01"
         "a",
         2},
        {"a byte that is no UTF-8", line_of("z\xFF"), "", "\n\x04z\uFFFD", 0},
        {"bytes that were no message to show", "{\"event\":770,\"message\":null,\"hex\":\"0a027aff\"}", "",
         "\n\x04z\uFFFD", 0},
        {"a serialised message",
         "\n\x01"
         "a",
         "",
         "\n\x01"
         "a",
         0},
        {"one with a text that is no UTF-8", bad_utf8, "", "\n\x04z\uFFFD", 0},
        {"one that begins like a line", "\n\x7B" + std::string(123, 'i'), "", "\n\x7B" + std::string(123, 'i'), 0},
    };
    for (const auto& [what, bytes, guid, expected, skipped] : rows) {
        vorn_trace_info trace;
        EXPECT_EQ(find_trace(bytes, guid, "f", trace), skipped) << what;
        EXPECT_EQ(trace.SerializeAsString(), expected) << what;
    }
}

TEST(FindTrace, SaysWhatIsMissing) {
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"", "", "f is empty"},
        {line_of("x", 769), "", "f: no line of event 770 among its 1 lines"},
        {line_of("a"), "b", "no line of event 770 with the GUID b among its 1 lines"},
        {"hello", "", "f holds neither lines"},
        {std::string("{\0}", 3), "", "no line of event 770"},
        {"\n\x01"
         "a",
         "b", "f: its message is of alert "},
    };
    vorn_trace_info trace;
    for (const auto& [bytes, guid, expected] : rows) try {
            find_trace(bytes, guid, "f", trace);
            ADD_FAILURE() << expected;
        } catch (const Failure& failure) {
            EXPECT_THAT(failure.what(), HasSubstr(expected));
        }
}

}  // namespace
