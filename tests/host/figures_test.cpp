// The host's own count: lines of the log go in, figures come out.
#include "host/lib/figures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "platform/zel_support.h"

namespace {

using namespace zelhost;

// Threads of the process that logs.
enum Thread : uint64_t { bus, alarm_worker, trace_worker };

struct Line {
    Thread thread;
    const char* text;
};

void feed(Figures& figures, const std::vector<Line>& lines) {
    for (const auto& [thread, text] : lines)
        figures.log_line(thread, ZEL_LOG_INFO, std::string("[PID:7    ]\t[INFO]\t[zelreshdl] [file.cpp(12)] ") + text);
}

// "1536: got=1 undecoded=1" for each kind, of the figures that are not 0.
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
    return text;
}

constexpr const char* kPush = "node event id: 770, process count: 1, risk level: 3, guid: G, push into eliminator";

TEST(Figures, CountWhatTheLogSays) {
    const struct {
        const char* name;
        std::vector<Line> lines;
        const char* figures;
        uint64_t waiting_traces = 0;
    } rows[] = {
        {.name = "an event is followed from the bus thread to the alarm worker",
         .lines = {{bus, "get event:1536"},
                   {bus, "[work queue count : 3]"},
                   {alarm_worker, "start handle 1536!"},
                   {alarm_worker, "GetJsonInfo failed!"}},
         .figures = "1536: got=1 queued=1 begun=1 undecoded=1"},
        {.name = "each thread has an event of its own in hand",
         .lines = {{bus, "get event:1536"},
                   {alarm_worker, "start handle ioc!"},
                   {bus, "Get event struct error!"},
                   {alarm_worker, "Get com protobuf failed!"}},
         .figures = "1281: begun=1 unbuilt=1 | 1536: got=1 not_taken=1"},
        {.name = "an ignored event ends where it begins",
         .lines = {{alarm_worker, "ignore handle: 2304!"}},
         .figures = "2304: ignored=1"},
        {.name = "what the trace worker could not send belongs to no event",
         .lines = {{trace_worker, "event invoke failed! guid:G"}},
         .figures = "0: unsent=1"},
        {.name = "without an event in hand, a line of a KOV alert is counted there",
         .lines = {{trace_worker, "event invoke failed!"}, {trace_worker, "zeltrc comp function is null."}},
         .figures = "1793: unsent=1 no_function=1"},
        {.name = "a line that is not the plug-in's says nothing", .lines = {{bus, "who cares"}}, .figures = ""},
        {.name = "a trace waits from its push on",
         .lines = {{alarm_worker, kPush}},
         .figures = "",
         .waiting_traces = 1},
        {.name = "a pushed trace ends with its answer",
         .lines = {{alarm_worker, kPush}, {trace_worker, "alert trace success, guid:G"}},
         .figures = "0: succeeded=1"},
        {.name = "a trace that was put off waits",
         .lines = {{trace_worker, "alert trace retry, guid:G"}},
         .figures = "0: retried=1",
         .waiting_traces = 1},
        {.name = "the trace worker was quicker than the line of the alarm worker that put a KOV alert off",
         .lines = {{alarm_worker, "start handle kov!"},
                   {trace_worker, "alert trace success, guid:G"},
                   {alarm_worker, "alert trace retry, guid:G"}},
         .figures = "0: succeeded=1 | 1793: begun=1 retried=1"},
    };
    for (const auto& row : rows) {
        Figures figures;
        feed(figures, row.lines);
        EXPECT_EQ(figures_text(figures.totals()), row.figures) << row.name;
        EXPECT_EQ(figures.totals().waiting_traces, row.waiting_traces) << row.name;
    }
}

TEST(Figures, ANewWorkerHasNothingInHand) {
    Figures figures;
    feed(figures, {{alarm_worker, "start handle 1536!"}});
    figures.workers_ended();
    feed(figures, {{alarm_worker, "Get com protobuf failed!"}});
    EXPECT_EQ(figures_text(figures.totals()), "0: unbuilt=1 | 1536: begun=1");
}

TEST(Figures, TwoCountersKnowNothingOfEachOther) {
    Figures one, other;
    feed(one, {{alarm_worker, "start handle 1536!"}});
    feed(other, {{alarm_worker, "Get com protobuf failed!"}});
    EXPECT_EQ(figures_text(other.totals()), "0: unbuilt=1");
}

TEST(Figures, TheSettingsTellWhetherTracingIsOff) {
    for (const auto& [tries, off] : {std::pair{"0", true}, {"8", false}, {"10", false}}) {
        Figures figures;
        const std::string text = std::string("queue max:100, trc time:15, trc times:") + tries + ", ioa";
        feed(figures, {{bus, text.c_str()}});
        EXPECT_EQ(figures.totals().tracing_off, off) << tries;
    }
}

// --- the table against the plug-in's sources ---

// All texts between quotation marks in src/, line by line.
std::set<std::string> literals_of_the_plug_in() {
    static const std::regex quoted(R"re("((?:[^"\\]|\\.)*)")re");
    std::set<std::string> literals;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(ZEL_SOURCES)) {
        if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);)
            for (std::sregex_iterator at(line.begin(), line.end(), quoted), end; at != end; ++at)
                literals.insert((*at)[1]);
    }
    return literals;
}

// The fixed parts of a format, between its conversions.
std::vector<std::string> parts_of(const std::string& format) {
    static const std::regex conversion("%[-0-9.]*[hlz]*[diuxXscp]");
    return {std::sregex_token_iterator(format.begin(), format.end(), conversion, -1), {}};
}

// Whether a line that is made of these parts can start with `text`. What stands in the place of a conversion has to be
// a number or a text of its own in the sources.
bool can_start(const std::set<std::string>& literals, std::span<const std::string> parts, std::string_view text) {
    if (parts.front().starts_with(text)) return true;
    if (!text.starts_with(parts.front()) || parts.size() == 1) return false;
    text.remove_prefix(parts.front().size());
    for (size_t size = 1; size <= text.size(); ++size) {
        const std::string value(text.substr(0, size));
        const bool known = literals.contains(value) || value.find_first_not_of("0123456789") == std::string::npos;
        if (known && can_start(literals, parts.subspan(1), text.substr(size))) return true;
    }
    return false;
}

TEST(Figures, KnowTextsThatThePlugInLogs) {
    const std::set<std::string> literals = literals_of_the_plug_in();
    ASSERT_GT(literals.size(), 500u);
    for (const LogText& row : log_texts()) {
        const bool logged = row.text.empty() || std::ranges::any_of(literals, [&](const std::string& format) {
                                const auto parts = parts_of(format);
                                return !format.empty() && can_start(literals, parts, row.text);
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
