// The host's own count: lines of the log go in, figures come out.
#include "host/lib/figures.h"

#include <gtest/gtest.h>

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
    using K = KindFigures;
    // clang-format off
    static constexpr std::pair<const char*, Figure> kNames[] = {
        {"got", &K::got}, {"queued", &K::queued}, {"begun", &K::begun}, {"not_taken", &K::not_taken}, {"hot", &K::hot},
        {"undecoded", &K::undecoded}, {"unbuilt", &K::unbuilt}, {"unsent", &K::unsent}, {"ignored", &K::ignored},
        {"no_function", &K::no_function}, {"succeeded", &K::succeeded}, {"retried", &K::retried}};
    // clang-format on
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
    const std::tuple<const char*, std::string, std::string> rows[] = {
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
    for (const auto& [what, lines, expected] : rows) {
        Figures figures;
        feed(figures, lines);
        EXPECT_EQ(figures_text(figures.totals()), expected) << what;
    }
}

TEST(Figures, AnotherWorkerAndAnotherCounterHaveNothingInHand) {
    Figures figures, other;
    feed(figures, "A start handle 1536!");
    feed(other, "A Get com protobuf failed!");
    figures.workers_ended();
    feed(figures, "A Get com protobuf failed!");
    EXPECT_EQ(figures_text(figures.totals()), "0: unbuilt=1 | 1536: begun=1");
    EXPECT_EQ(figures_text(other.totals()), "0: unbuilt=1");
}

TEST(Figures, TheSettingsTellWhetherTracingIsOff) {
    for (const auto& [tries, off] : {std::pair{"0", true}, {"8", false}, {"10", false}}) {
        Figures figures;
        feed(figures, std::string("B queue max:100, trc time:15, trc times:") + tries + ", ioa");
        EXPECT_EQ(figures.totals().tracing_off, off) << tries;
    }
}

TEST(Figures, AdviceIsNoError) {
    Figures figures;
    for (const std::string_view text : {kNoAgentIdText, std::string_view("load moudle failed!")})
        figures.log_line('B', ZEL_LOG_ERROR, "[PID:7    ]\t[ERROR]\t[zelreshdl] [file.cpp(12)] " + std::string(text));
    EXPECT_EQ(figures.totals().errors, 1u);
    EXPECT_EQ(figures.totals().last_errors[0], "") << "a failed start names what made it fail";
}

// --- the table against the plug-in's sources ---

std::string sources_of_the_plug_in() {
    std::ostringstream all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(ZEL_SOURCES))
        if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h")
            all << std::ifstream(entry.path()).rdbuf();
    return all.str();
}

TEST(Figures, KnowTextsThatThePlugInLogs) {
    const std::string sources = sources_of_the_plug_in();
    const std::pair<std::string, std::string> around_a_name[] = {{"start handle ", "!"}, {"", " given up:"}};
    const auto holds = [&](const std::string& text) { return sources.find(text) != std::string::npos; };
    for (const LogText& row : log_texts()) {
        const std::string text(row.text);
        bool logged = holds('"' + text);
        for (const auto& [before, behind] : around_a_name)
            if (text.starts_with(before) && text.ends_with(behind) && holds('"' + before + "%s" + behind))
                logged |= holds('"' + text.substr(before.size(), text.size() - before.size() - behind.size()) + '"');
        EXPECT_TRUE(logged) << "no log line of the plug-in starts with: " << text;
    }
    for (const std::string_view text : {kGuidText, kPushedText, kSettingsText, kTriesText, kNoAgentIdText})
        EXPECT_TRUE(holds(std::string(text))) << "no log line of the plug-in holds: " << text;
}

// Each end of an event has one row that says it in words.
TEST(Figures, EveryEndHasItsWordsOnce) {
    std::set<std::string> words;
    for (const LogText& row : log_texts()) {
        EXPECT_EQ(row.ends == Place::goes_on, row.words == nullptr) << row.text;
        EXPECT_TRUE(row.words == nullptr || words.insert(row.words).second) << row.text;
    }
}

}  // namespace
