// The host's own count: lines of the log go in, figures come out.
#include "host/lib/figures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "platform/zel_support.h"

namespace {

using namespace zelhost;

// Lines with a bar between them; the letter before each names its thread: the bus, the alarm worker or the trace
// worker.
void feed(Figures& figures, const std::string& lines) {
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line, '|');)
        figures.log_line(static_cast<uint64_t>(line[0]), ZEL_LOG_INFO,
                         "[PID:7    ]\t[INFO]\t[zelreshdl] [file.cpp(12)] " + line.substr(2));
}

// "1536: got=1 undecoded=1" for each kind, of the figures that are not 0, and the traces that wait.
std::string figures_text(const Totals& totals) {
    static constexpr struct {
        const char* name;
        Figure figure;
    } kNames[] = {
        {"got", &KindFigures::got},
        {"queued", &KindFigures::queued},
        {"begun", &KindFigures::begun},
        {"not_taken", &KindFigures::not_taken},
        {"hot", &KindFigures::hot},
        {"undecoded", &KindFigures::undecoded},
        {"unbuilt", &KindFigures::unbuilt},
        {"unsent", &KindFigures::unsent},
        {"ignored", &KindFigures::ignored},
        {"no_function", &KindFigures::no_function},
        {"succeeded", &KindFigures::succeeded},
        {"retried", &KindFigures::retried},
    };
    std::string text;
    for (const auto& [id, kind] : totals.kinds) {
        text += (text.empty() ? "" : " | ") + std::to_string(id) + ":";
        for (const auto& [name, figure] : kNames)
            if (kind.*figure != 0) text += std::string(" ") + name + "=" + std::to_string(kind.*figure);
    }
    return text + (totals.waiting_traces == 0 ? "" : " waiting=" + std::to_string(totals.waiting_traces));
}

const std::string kPush = "A node event id: 770, process count: 1, risk level: 3, guid: G, push into eliminator";

TEST(Figures, CountWhatTheLogSays) {
    const struct {
        const char* what;
        std::string lines, figures;
    } rows[] = {
        {"an event is followed from the bus thread to the alarm worker",
         "B get event:1536|B [work queue count : 3]|A start handle 1536!|A GetJsonInfo failed!",
         "1536: got=1 queued=1 begun=1 undecoded=1"},
        {"each thread has an event of its own in hand",
         "B get event:1536|A start handle ioc!|B Get event struct error!|A Get com protobuf failed!",
         "1281: begun=1 unbuilt=1 | 1536: got=1 not_taken=1"},
        {"an ignored event ends where it begins", "A ignore handle: 2304!", "2304: ignored=1"},
        {"what the trace worker could not send is no event's", "T event invoke failed! guid:G", "0: unsent=1"},
        {"without an event in hand, a line of a KOV alert is counted there",
         "T event invoke failed!|T zeltrc comp function is null.", "1793: unsent=1 no_function=1"},
        {"a line that is not the plug-in's says nothing", "B who cares", ""},
        {"a trace waits from its push on", kPush, " waiting=1"},
        {"a pushed trace ends with its answer", kPush + "|T alert trace success, guid:G", "0: succeeded=1"},
        {"a trace that was put off waits", "T alert trace retry, guid:G", "0: retried=1 waiting=1"},
        {"the trace worker was quicker than the line of the alarm worker that put a KOV alert off",
         "A start handle kov!|T alert trace success, guid:G|A alert trace retry, guid:G",
         "0: succeeded=1 | 1793: begun=1 retried=1"},
    };
    for (const auto& row : rows) {
        Figures figures;
        feed(figures, row.lines);
        EXPECT_EQ(figures_text(figures.totals()), row.figures) << row.what;
    }
}

TEST(Figures, ANewWorkerHasNothingInHand) {
    Figures figures;
    feed(figures, "A start handle 1536!");
    figures.workers_ended();
    feed(figures, "A Get com protobuf failed!");
    EXPECT_EQ(figures_text(figures.totals()), "0: unbuilt=1 | 1536: begun=1");
}

TEST(Figures, TwoCountersKnowNothingOfEachOther) {
    Figures one, other;
    feed(one, "A start handle 1536!");
    feed(other, "A Get com protobuf failed!");
    EXPECT_EQ(figures_text(other.totals()), "0: unbuilt=1");
}

TEST(Figures, TheSettingsTellWhetherTracingIsOff) {
    for (const auto& [tries, off] : {std::pair{"0", true}, {"8", false}, {"10", false}}) {
        Figures figures;
        feed(figures, std::string("B queue max:100, trc time:15, trc times:") + tries + ", ioa");
        EXPECT_EQ(figures.totals().tracing_off, off) << tries;
    }
}

// --- the table against the plug-in's sources ---

// All texts between quotation marks in src/, line by line.
std::set<std::string> literals_of_the_plug_in() {
    std::set<std::string> literals;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(ZEL_SOURCES)) {
        if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);)
            for (size_t begin = line.find('"'); begin != std::string::npos; begin = line.find('"', begin)) {
                size_t end = ++begin;
                while (end < line.size() && line[end] != '"') end += line[end] == '\\' ? 2 : 1;
                literals.insert(line.substr(begin, end - begin));
                begin = end + 1;
            }
    }
    return literals;
}

constexpr char kValue = '\1';

// A format with kValue in the place of its conversions.
std::string template_of(std::string format) {
    for (size_t at = 0; (at = format.find('%', at)) != std::string::npos; ++at)
        if (const size_t last = format.find_first_not_of("-0123456789.hlz", at + 1); last != std::string::npos)
            format.replace(at, last - at + 1, 1, kValue);
    return format;
}

// Whether a line of that template can start with `text`. A value has to be a number or a word of its own in the
// sources.
bool can_start(const std::set<std::string>& literals, const std::string& line, std::string_view text) {
    for (size_t i = 0; i < line.size() && !text.empty(); ++i) {
        size_t size = 1;
        if (line[i] == kValue) {
            const auto end = std::ranges::find_if_not(text, [](char c) { return c == '_' || isalnum(c) != 0; });
            const std::string value(text.begin(), end);
            if (!literals.contains(value) && value.find_first_not_of("0123456789") != std::string::npos) return false;
            size = value.size();
        } else if (text.front() != line[i]) {
            return false;
        }
        text.remove_prefix(size);
    }
    return text.empty();
}

TEST(Figures, KnowTextsThatThePlugInLogs) {
    const std::set<std::string> literals = literals_of_the_plug_in();
    ASSERT_GT(literals.size(), 500u);
    for (const LogText& row : log_texts()) {
        const bool logged = row.text.empty() || std::ranges::any_of(literals, [&](const std::string& format) {
                                return can_start(literals, template_of(format), row.text);
                            });
        EXPECT_TRUE(logged) << "no log line of the plug-in starts with: " << row.text;
    }
    for (const std::string_view text : {kGuidText, kPushedText, kSettingsText, kTriesText})
        EXPECT_TRUE(std::ranges::any_of(
            literals, [&](const std::string& format) { return format.find(text) != std::string::npos; }))
            << "no log line of the plug-in holds: " << text;
}

// Each end of an event has one row that says it in words.
TEST(Figures, EveryEndHasItsWordsOnce) {
    std::set<std::string> words;
    for (const LogText& row : log_texts()) {
        EXPECT_EQ(row.ends == Place::goes_on, row.words == nullptr) << row.text;
        if (row.words == nullptr) continue;
        EXPECT_TRUE(words.insert(row.words).second) << row.words;
    }
}

}  // namespace
