// Stories of alerts, told from lines of a log.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "host/explain/log_format.h"
#include "host/explain/log_line.h"
#include "host/explain/story_book.h"
#include "host/explain/story_texts.h"
#include "host/lib/figures.h"
#include "platform/zel_support.h"

namespace {

using namespace zelhost;

// Lines with a bar between them. The letter before each names its thread, as a record does: bus, alarm worker, trace
// worker, or "-" where nothing tells it, as in a log. "%" before the letter: another process writes it.
StoryBook told(const std::string& lines) {
    StoryBook book(Wanted{});
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line, '|');) {
        Entry entry;
        entry.process = line[0] == '%' ? 8 : 7;
        if (line[0] == '%') line.erase(0, 1);
        entry.worker = line[0] == 'B'   ? Worker::bus
                       : line[0] == 'A' ? Worker::alarm
                       : line[0] == 'T' ? Worker::trace
                                        : Worker::unknown;
        entry.level = ZEL_LOG_ERROR;
        entry.text = line.substr(2);
        book.take(entry);
    }
    book.end();
    return book;
}

// "G1 1536 shed, queue full | - 1541 ..." for all stories.
std::string ends_text(const StoryBook& book) {
    std::string text;
    for (const Story& story : book.stories())
        text += (text.empty() ? "" : " | ") + (story.guid.empty() ? "-" : story.guid) + " " +
                std::to_string(story.event) + " " + words_of(story.end).words;
    return text;
}

// What the story of a GUID says of its messages.
std::string sizes_text(const StoryBook& book, const std::string& guid) {
    std::string text;
    for (const Story& story : book.stories())
        for (const Step& step : story.steps)
            if (story.guid == guid && step.text.find("event 7") != std::string::npos)
                text += (text.empty() ? "" : "; ") + step.text;
    return text;
}

std::string on_queue(const std::string& id) { return "- get event:" + id + "|- [work queue count : 1]|"; }
std::string pushed(const std::string& guid) {
    return "- node event id: 1536, process count: 2, risk level: 3, guid: " + guid + ", push into eliminator|";
}
const std::string kSent = "- invoke buf size:30|- invoke event succeed!|";
const std::string kBuilds = "- get cwpp agentid[a]|";
const std::string kReported =
    on_queue("1536") + "- start handle 1536!|" + kBuilds + kSent + "- host alert,trace|" + pushed("G");

TEST(Stories, HaveEachEnd) {
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"the queue is full",
         "- get event:1536|- The queue reached the threshold. Event queue:101, trc queue:3, delay queue:4",
         "- 1536 shed, queue full"},
        {"a hit that is known", "- get event:1281|- The event is in the hot cache.event:1281",
         "- 1281 merged by the hot cache"},
        {"no payload", "- get event:1536|- Evt->GetNativeEvent error|- GetNativeEventData failed!",
         "- 1536 without payload"},
        {"no memory at the intake", "- get event:534|- unknown event id : 534|- Get event struct error!",
         "- 534 refused at intake"},
        {"given up by the bus thread", "- get event:1536|- bus event given up: std::bad_alloc", "- 1536 given up"},
        {"it waits for the alarm worker", on_queue("1536"), "- 1536 still waiting"},
        {"not decoded", on_queue("1536") + "- start handle 1536!|- GetRuleInfo failed!|- GetJsonInfo failed!",
         "- 1536 not decoded"},
        {"ignored", on_queue("2304") + "- ignore handle: 2304!", "- 2304 ignored"},
        {"busy", on_queue("1536") + "- start handle 1536!|- The alarm has been filtered.[S-1], guid:G",
         "G 1536 filtered, busy"},
        {"trigger rules", on_queue("1536") + "- start handle 1536!|- Trigger rule only, skip. guid:G",
         "G 1536 trigger rules only"},
        {"a repeat",
         on_queue("1536") +
             "- start handle 1536!|- repeat alert event! guid: G|- The alert has been repeated. guid:G|" + kBuilds +
             kSent + "- container alert, not trace. guid:G",
         "G 1536 reported as a repeat, without a trace"},
        {"from a container",
         on_queue("1538") + "- start handle 1538!|- jsonparse_strContainerId:c1, strImageId:i, strContainerName:n|" +
             kBuilds + kSent + "- container alert, not trace. guid:G",
         "G 1538 reported from a container, without a trace"},
        {"not built", on_queue("1536") + "- start handle 1536!|- Get com protobuf failed!", "- 1536 message not built"},
        {"not sent",
         on_queue("1536") + "- start handle 1536!|" + kBuilds + "- invoke buf size:30|- create event error!|" +
             "- event invoke failed! guid:G",
         "G 1536 not sent"},
        {"given up by the alarm worker", on_queue("1540") + "- start handle 1540!|- event given up: std::bad_alloc",
         "- 1540 given up"},
        {"a finding", on_queue("1541") + "- start handle 1541!|" + kBuilds + kSent + on_queue("1541"),
         "- 1541 reported, without a trace | - 1541 still waiting"},
        {"tracing is off",
         "- queue max:100, interval:5, trace val:50, trc time:15, trc times:0, ioa match queue size:1, disable scan "
         "scenario limit:1, alert_filter_switch:1|" +
             on_queue("1536") + "- start handle 1536!|" + kBuilds + kSent + "- host alert,trace",
         "- 1536 reported, without a trace"},
        {"no memory for the trace",
         on_queue("1536") + "- start handle 1536!|" + kBuilds + kSent +
             "- host alert,trace|- new(std::nothrow)ST_QUEQE_NODE",
         "- 1536 reported, trace lost for want of memory"},
        {"it waits for its trace", kReported, "G 1536 still waiting"},
        {"traced", kReported + "- alert trace success, guid:G|" + kSent, "G 1536 reported and traced"},
        {"put off and traced",
         kReported + "- alert trace retry, guid:G|- GetComResult failed!|- alert trace success, guid:G",
         "G 1536 reported and traced"},
        {"failed", kReported + "- alert trace failed, guid:G", "G 1536 reported, trace failed"},
        {"all tries",
         kReported +
             "- alert trace retry, guid:G|- Try more than 1 times, discard! guid:G|- alert trace failed, guid:G",
         "G 1536 reported, trace given up after its last try"},
        {"dropped by the module", kReported + "- alert trace dropped, guid:G",
         "G 1536 reported, trace dropped by the trace module"},
        {"shed, before its turn", kReported + "- predict delay time: 60001|- drop alarm: G",
         "G 1536 reported, trace shed"},
        {"shed, in its turn", kReported + "- predict delay time: 60001|- drop alarm: G|- alert trace dropped, guid:G",
         "G 1536 reported, trace shed"},
        {"the chain is not sent", kReported + "- alert trace success, guid:G|- event invoke failed! guid:G",
         "G 1536 reported, chain not sent"},
        {"a KOV alert",
         on_queue("1793") + "- start handle kov!|- alert trace success, guid:K|" + kSent +
             "- alert trace success, guid:K|" + kSent,
         "K 1793 reported and traced"},
        {"a KOV alert that is put off first",
         on_queue("1793") + "- start handle kov!|- alert trace retry, guid:K|- GetKovAlarm failed!",
         "K 1793 still waiting"},
        {"a KOV alert that is not completed",
         on_queue("1793") + "- start handle kov!|- alert trace failed, guid:K|" + kSent +
             "- Failed to complete the alarm information.",
         "K 1793 reported, not completed"},
        {"no trace module", on_queue("1793") + "- start handle kov!|- zeltrc comp function is null.",
         "- 1793 without trace module"},
        {"a trace for the host", "- start file trace!|- alert trace success, guid:F", "F 0 answered to the host"},
        {"a stop discards what waits", kReported + on_queue("1540") + "- Stop handled event.",
         "G 1536 discarded by the stop of the plug-in | - 1540 discarded by the stop of the plug-in"},
        {"what the alarm worker had in hand at the stop ends as it says",
         on_queue("1536") + "- Stop handled event.|- start handle 1536!|- GetJsonInfo failed!", "- 1536 not decoded"},
        {"a later process has started", kReported + "%- Start handled event.|" + on_queue("1540"),
         "G 1536 gone with the process | - 1540 still waiting"},
        {"two processes at once have an event in hand each",
         "- start handle 1536!|%- start handle 1540!|- GetJsonInfo failed!|%- event given up: x",
         "- 1536 not decoded | - 1540 given up"},
        {"the log begins late", "- alert trace success, guid:G|- drop alarm: H",
         "G 0 reported and traced | H 0 reported, trace shed"},
        {"without the lines of level debug", "- get event:1536|- get event:1536",
         "- 1536 not told by what was read | - 1536 still waiting"},
    };
    for (const auto& [what, lines, expected] : rows) {
        const StoryBook book = told(lines);
        EXPECT_EQ(ends_text(book), expected) << what;
        EXPECT_EQ(book.unplaced(), 0u) << what << ": " << book.unplaced_example();
    }
}

// Both workers write the same lines about their messages.
TEST(Stories, TellWhoseMessageIsOnItsWay) {
    const std::string waiting = kReported + on_queue("1536");
    const std::string end = "- host alert,trace|" + pushed("H");
    const std::string big = "- invoke buf size:99|- invoke event succeed!|";
    const std::tuple<const char*, std::string, std::string, std::string> rows[] = {
        {"the alarm worker has nothing to send", waiting + "- alert trace success, guid:G|" + big,
         "event 770, 99 bytes", ""},
        {"it still decodes when the chain goes out",
         waiting + "- start handle 1536!|- alert trace success, guid:G|" + big + kBuilds + kSent + end,
         "event 770, 99 bytes", "reported, event 769, 30 bytes"},
        {"it builds, and says so after the chain went out",
         waiting + "- start handle 1536!|" + kBuilds + "- alert trace success, guid:G|" + big +
             "- [ds]str: x not Ascii|" + kSent + end,
         "event 770, 99 bytes", "reported, event 769, 30 bytes"},
        {"both are sent while either may be of either",
         waiting + "- start handle 1536!|" + kBuilds + "- alert trace success, guid:G|" + big + kSent + end,
         "event 770", "reported, event 769"},
        {"a record tells who",
         waiting +
             "A start handle 1536!|A get cwpp agentid[a]|T alert trace success, guid:G|T invoke buf size:99|A invoke "
             "buf size:30|A invoke event succeed!|T invoke event succeed!|A host alert,trace|" +
             pushed("H"),
         "event 770, 99 bytes", "reported, event 769, 30 bytes"},
        {"the end that came first was that of the other",
         waiting + "- start handle 1536!|- alert trace success, guid:G|- invoke buf size:99|" + kBuilds +
             "- invoke buf size:30|- invoke event succeed!|" + end + "- invoke event succeed!",
         "event 770, 99 bytes", "reported, event 769, 30 bytes"},
    };
    for (const auto& [what, lines, chain, report] : rows) {
        const StoryBook book = told(lines);
        EXPECT_EQ(sizes_text(book, "G"), "reported, event 769, 30 bytes; its chain is sent, " + chain) << what;
        EXPECT_EQ(sizes_text(book, "H"), report) << what;
        EXPECT_EQ(book.unplaced(), 0u) << what << ": " << book.unplaced_example();
    }
}

TEST(Stories, CountLinesThatFitNoAlert) {
    const std::pair<const char*, std::string> rows[] = {
        {"no event is in hand", "- GetJsonInfo failed!"},
        {"nobody sends", "- invoke event succeed!"},
        {"a text that nobody knows", "- something else"},
        {"a GUID that was cut off", kReported + "- alert trace success, guid:"},
        {"a number that was cut off", "- get event:"},
        {"a GUID with more behind it", kReported + "- drop alarm: " + std::string(200, 'G')},
    };
    for (const auto& [what, lines] : rows) {
        const StoryBook book = told(lines);
        EXPECT_EQ(book.unplaced(), 1u) << what << ": " << ends_text(book);
    }
}

TEST(Stories, OfAShedAlertNameThePrediction) {
    const StoryBook book =
        told(kReported +
             "- set max delay second to: 70000|- current predict time, truck trace: 300, full trace: 900|"
             "- predict delay time: 71000|- drop alarm: G");
    EXPECT_EQ(
        book.stories().front().steps.back().text,
        "shed: all waiting traces together were predicted to take 71000 ms, and the limit is 70000 ms; its own would "
        "have taken 1800 ms, 2 processes at 900 ms (full trace for risk level 3)");
}

TEST(LogFormat, GivesTheValues) {
    const std::tuple<const char*, const char*, int, const char*> rows[] = {
        {"get event:1536", "get event:%u", -1, "1536"},
        {"get event:", "get event:%u", -1, "no"},
        {"get event:1536x", "get event:%u", -1, "no"},
        {"failed!0x80004005", "failed!0x%08x", -1, "80004005"},
        {"limit -5 of 7", "limit %lld of %zu", -1, "-5;7"},
        {"100 % error", "100 %% error", -1, ""},
        {"a, guid:b, guid:G", "%s, guid:%s", 1, "a, guid:b;G"},
        {"guid:G, key:a, key:b, n:1", "guid:%s, key:%s, n:%u", 0, "G;a, key:b;1"},
        {"x given up: y given up: z", "%s given up: %s", -1, "x;y given up: z"},
    };
    for (const auto& [line, format, guid, expected] : rows) {
        const auto values = values_of(line, format, guid);
        std::string text;
        for (const std::string_view value : values.value_or(std::vector<std::string_view>{"no"}))
            text += (text.empty() ? "" : ";") + std::string(value);
        EXPECT_EQ(text, expected) << line;
    }
}

TEST(LogLine, IsReadWhateverStandsAroundIt) {
    const std::string prefix = "[PID:7    ]\t[WARN]\t[zelreshdl] [a.cpp(3)] ";
    const std::string whole = "2026-11-25 19:41:03.906 " + prefix + "text (b)] c";
    const auto line = parse_log_line(whole);
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(line->process, 7);
    EXPECT_EQ(line->level, ZEL_LOG_WARN);
    EXPECT_EQ(line->file, "a.cpp");
    EXPECT_EQ(line->text, "text (b)] c");
    EXPECT_EQ(line->at_us.value_or(0) % 1'000'000, 906'000);
    EXPECT_FALSE(parse_log_line("9999-99-99 19:41:03.906 " + prefix)->at_us.has_value());
    for (const char* const other :
         {"", "[PID:7", "[PID:x]\t[WARN]\t[zelreshdl] [a(1)] t", "[PID:7]\t[WARN]\t[other] [a(1)] t",
          "[PID:7]\t[NOTE]\t[zelreshdl] [a(1)] t", "[PID:7]\t[WARN]\t[zelreshdl] [a(1) t"})
        EXPECT_FALSE(parse_log_line(other).has_value()) << other;
}

// --- the table against the plug-in's sources ---

// What the plug-in logs: each format, with what the C++ source writes as escapes.
std::set<std::string> formats_of_the_plug_in() {
    const std::regex call(R"re(LOG_(?:ERROR|WARN|INFO|DEBUG)(?:_AT)?\(\s*(?:where,\s*)?((?:"(?:[^"\\]|\\.)*"\s*)+))re");
    const std::regex literal(R"re("((?:[^"\\]|\\.)*)")re");
    std::set<std::string> formats;
    for (const auto& file : std::filesystem::recursive_directory_iterator(ZEL_SOURCES)) {
        if (file.path().extension() != ".cpp" && file.path().extension() != ".h") continue;
        std::ostringstream all;
        all << std::ifstream(file.path()).rdbuf();
        const std::string source = all.str();
        for (std::sregex_iterator at(source.begin(), source.end(), call), none; at != none; ++at) {
            const std::string written = (*at)[1];
            std::string format;
            for (std::sregex_iterator part(written.begin(), written.end(), literal); part != none; ++part)
                format += (*part)[1];
            format = std::regex_replace(format, std::regex(R"(\\n)"), "\n");
            formats.insert(std::regex_replace(format, std::regex(R"(\\r)"), "\r"));
        }
    }
    return formats;
}

TEST(StoryTexts, AreThoseOfThePlugIn) {
    const std::set<std::string> logged = formats_of_the_plug_in();
    ASSERT_GT(logged.size(), 100u);
    std::set<std::string> known;
    for (const StoryText& row : story_texts()) known.emplace(row.format);
    for (const std::string_view text : silent_texts()) known.emplace(text);
    for (const std::string& format : logged) EXPECT_TRUE(known.contains(format)) << "no row for: " << format;
    for (const std::string& format : known)
        EXPECT_TRUE(logged.contains(format)) << "the plug-in does not log: " << format;
}

// A row that another one before it hides is never found.
TEST(StoryTexts, AreFoundByTheirOwnLines) {
    for (const StoryText& row : story_texts()) {
        std::string line = std::regex_replace(std::string(row.format), std::regex("%[0-9]*(l*[dux]|zu)"), "1");
        line = std::regex_replace(line, std::regex("%s"), row.first.empty() ? "ioc" : std::string(row.first));
        line = std::regex_replace(line, std::regex("%%"), "%");
        const Reading reading = read_text(line, row.file);
        EXPECT_EQ(reading.row, &row) << row.format;
    }
}

// A run's summary and a story call the same end by the same words.
TEST(StoryTexts, HaveTheWordsOfTheSummary) {
    for (const LogText& text : log_texts()) {
        if (text.words == nullptr || text.text.empty()) continue;
        EXPECT_TRUE(std::ranges::any_of(end_words(), [&](const EndWords& end) {
            return end.words == std::string_view(text.words);
        })) << text.words;
    }
    for (size_t i = 0; i < end_words().size(); ++i) EXPECT_EQ(static_cast<size_t>(end_words()[i].end), i);
}

}  // namespace
