// What stands between the files of `zelhost check` and its answers: documents in files, and cuts of lines.
#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "host/lib/documents.h"
#include "host/lib/json_scan.h"
#include "host/lib/snippet.h"

namespace zelhost {
namespace {

// "NUMBER EVENT LINE: TEXT" for each document of a file.
std::vector<std::string> documents_of(const std::string& bytes) {
    static const StopSignal stop;
    const std::string file = ::testing::TempDir() + "documents-" + std::to_string(getpid());
    std::ofstream(file, std::ios::binary) << bytes;
    Documents documents(file, stop);
    std::vector<std::string> all;
    for (Document document; documents.next(document);)
        all.push_back(std::to_string(document.number) + " " + std::to_string(document.event_id) + " " +
                      std::to_string(document.place(0).line) + ": " + std::string(document.text));
    unlink(file.c_str());
    return all;
}

TEST(Documents, TheFirstLineSaysWhetherTheFileIsOne) {
    const std::tuple<int, std::string, std::vector<std::string>> rows[] = {
        {__LINE__, "", {}},
        {__LINE__, "\n# only a comment\n \t\r\n", {}},
        {__LINE__, "{}\n{}", {"1 1536 1: {}", "2 1536 2: {}"}},
        {__LINE__, "\n#\n{\"a\":\n1}\n", {"1 1536 3: {\"a\":\n1}"}},
        {__LINE__, "{\n\n#x\n\"a\":1}", {"1 1536 1: {\n\n#x\n\"a\":1}"}},
        {__LINE__, "{\"rule\":[\n{}\n]}", {"1 1536 1: {\"rule\":[\n{}\n]}"}},
        {__LINE__, "{\"rule\":[{},\n{}\n]}", {"1 1536 1: {\"rule\":[{},\n{}\n]}"}},
        {__LINE__, "{\"cut\":1\n \n{}", {"1 1536 1: {\"cut\":1", "2 1536 3: {}"}},
        {__LINE__, "{\"cut\":\"[\n{}", {"1 1536 1: {\"cut\":\"[", "2 1536 2: {}"}},
        {__LINE__, "{\"cut\":1", {"1 1536 1: {\"cut\":1"}},
        {__LINE__, "[\n{}]", {"1 1536 1: [\n{}]"}},
        {__LINE__, "{\"a\":\"}\\\"\"\n}", {"1 1536 1: {\"a\":\"}\\\"\"\n}"}},
        {__LINE__, "word\r\n{\n", {"1 1536 1: word", "2 1536 2: {"}},
        {__LINE__, "\xEF\xBB\xBF# mark\n\xEF\xBB\xBF{}", {"1 1536 2: \xEF\xBB\xBF{}"}},
    };
    for (const auto& [line, bytes, expected] : rows) EXPECT_EQ(documents_of(bytes), expected) << "line " << line;
}

TEST(Documents, AScriptGivesItsAlerts) {
    const std::tuple<int, std::string, std::vector<std::string>> rows[] = {
        {__LINE__, R"({"event":1536,"alert":{"a":[1,"]"]} })", {R"(1 1536 1: {"a":[1,"]"]})"}},
        {__LINE__, R"({ "json" : [] , "event" : 1538 })", {"1 1538 1: []"}},
        {__LINE__, R"({"event":1538,"text":"{\"a\":\u00e4\t}"})", {"1 1538 1: {\"a\":\xC3\xA4\t}"}},
        {__LINE__, R"({"event":1541,"text":"x"})", {}},
        {__LINE__, R"({"event":1536,"hex":"00"})", {}},
        {__LINE__, R"({"do":"wait"})", {}},
        {__LINE__, R"({"event":1536,"alert":{"a":1})", {R"(1 1536 1: {"event":1536,"alert":{"a":1})"}},
        {__LINE__, R"({"do":"wait"} x)", {R"(1 1536 1: {"do":"wait"} x)"}},
        {__LINE__, R"({"event":"1536","alert":{}})", {R"(1 1536 1: {"event":"1536","alert":{}})"}},
        {__LINE__, R"({"Alert_Type":3,"event":1541})", {R"(1 1536 1: {"Alert_Type":3,"event":1541})"}},
    };
    for (const auto& [line, bytes, expected] : rows) EXPECT_EQ(documents_of(bytes), expected) << "line " << line;
}

TEST(Literals, EachByteOfTheValueHasItsPlace) {
    // The value's bytes, and where each comes from; the last place is that of the end.
    const std::tuple<const char*, std::string, std::vector<size_t>> rows[] = {
        {R"("ab")", "ab", {1, 2, 3}},
        {R"("\n\"x")", "\n\"x", {1, 3, 5, 6}},
        {R"("\u00e4b")",
         "\xC3\xA4"
         "b",
         {1, 1, 7, 8}},
        {R"("\ud83d\ude00b")",
         "\xF0\x9F\x98\x80"
         "b",
         {1, 1, 1, 1, 13, 14}},
        {R"("\ude00")", "\xEF\xBF\xBD", {1, 1, 1, 7}},
        {R"("cut\)", "cut\\", {1, 2, 3, 4, 5}},
    };
    for (const auto& [literal, value, places] : rows) {
        EXPECT_EQ(literal_value(literal), value);
        for (size_t i = 0; i < places.size(); ++i) EXPECT_EQ(literal_place(literal, i), places[i]) << literal << i;
    }
}

TEST(Snippets, TheMarksStandUnderThePlace) {
    const std::string wide = "\xE4\xB8\xAD";
    const std::string many(200, 'x');
    const std::tuple<int, std::string, size_t, size_t, std::string, std::string> rows[] = {
        {__LINE__, "", 0, 0, "", "^"},
        {__LINE__, "abc", 1, 2, "abc", " ^~"},
        {__LINE__, "abc", 3, 0, "abc", "   ^"},
        {__LINE__, "abc", 1, 99, "abc", " ^~"},
        {__LINE__, wide + "b", 3, 1, wide + "b", "  ^"},
        {__LINE__, wide, 1, 1, wide, "^~"},
        {__LINE__, "\x1b[m\xFFz", 4, 1, R"(\x1b[m\xffz)", "          ^"},
        {__LINE__, "\x01z", 0, 1, R"(\x01z)", "^~~~"},
        {__LINE__,
         "a\xE2\x80\xAE"
         "b",
         4, 1, R"(a\xe2\x80\xaeb)", "             ^"},
        {__LINE__, "e\xCC\x81z", 3, 1, "e\xCC\x81z", " ^"},
        {__LINE__, many, 0, 5, many.substr(0, 66) + "...", "^~~~~"},
        {__LINE__, many, 200, 0, "..." + many.substr(0, 66), std::string(69, ' ') + "^"},
        {__LINE__, many, 100, 200, "..." + many.substr(0, 66) + "...",
         std::string(33, ' ') + "^" + std::string(35, '~')},
        {__LINE__, many + ",word " + many, 206, 1, "...word " + many.substr(0, 61 - 25) + "...", "        ^"},
    };
    for (const auto& [line, text, at, size, cut, marks] : rows) {
        const Snippet snippet = cut_around(text, at, size);
        EXPECT_EQ(snippet.text, cut) << "line " << line;
        EXPECT_EQ(snippet.marks, marks) << "line " << line;
    }
}

}  // namespace
}  // namespace zelhost
