// What a run shows: which events, the lines for people, the status line and the metrics.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <retrace.pb.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/lib/event_filter.h"
#include "host/lib/failure.h"
#include "host/lib/metrics.h"
#include "host/lib/pretty_lines.h"
#include "host/lib/status_line.h"
#include "host/lib/visible.h"
#include "platform/zel_support.h"

namespace {

using namespace zelhost;
using vorn_retrace::vorn_trace_info;

// An outgoing event; the text keeps the message alive.
struct Event {
    Event(EVENT_ID id, EVENT_ID source, const std::string& bytes, const char* guid = "0123456789") : message(bytes) {
        record.uEventId = id;
        record.uSourceEventId = source;
        record.pData = message.data();
        record.uSize = message.size();
        record.pszGuid = const_cast<char*>(guid);
    }
    std::string message;
    ST_PB_EVENT record{};
};

vorn_trace_info alert(vorn_retrace::VORN_RISK_LEVEL level) {
    vorn_trace_info message;
    auto& threat = *message.mutable_threat();
    threat.set_risk_level(level);
    threat.set_alert_name("Name");
    auto& rule = *threat.add_alert_rule();
    rule.set_rule_id("R-1");
    auto& subject = *rule.add_alert_event()->mutable_subject_process();
    subject.set_process_path("/usr/bin/sh\x1b[2J");
    subject.set_process_id(7);
    return message;
}

TEST(EventFilter, LetsThroughWhatWasAskedFor) {
    const std::string mid = alert(vorn_retrace::VORN_RISK_LEVEL_MID).SerializeAsString();
    const std::string high = alert(vorn_retrace::VORN_RISK_LEVEL_HIGH).SerializeAsString();
    // 769 of severity mid, high and none, 770 high, a memory check, an answer of severity high, a report
    const struct {
        std::set<EVENT_ID> events;
        int level;
        const char* expected;
    } rows[] = {
        {{}, 0, "1111 1 1 1"}, {{769}, 0, "1110 0 0 0"}, {{770, 2305}, 0, "0001 1 0 0"}, {{}, 4, "0101 0 1 0"},
        {{}, 3, "1101 0 1 0"}, {{769}, 4, "0100 0 0 0"}, {{2305}, 1, "0000 0 0 0"},
    };
    for (const auto& [events, level, expected] : rows) {
        const EventFilter filter{events, level};
        std::ostringstream got;
        for (const Event& event :
             {Event(769, 1536, mid), Event(769, 1536, high), Event(769, 1541, ""), Event(770, 1536, high)})
            got << filter.wants(event.record);
        got << ' ' << filter.wants_memory_check() << ' '
            << filter.wants_answer(high.data(), static_cast<uint32_t>(high.size())) << ' ' << filter.wants_the_rest();
        EXPECT_EQ(got.str(), expected) << "events " << events.size() << ", level " << level;
    }
}

// --- lines for people ---

// Without the time, and with one space for several.
std::string squeezed(const std::string& line) {
    std::string text;
    for (const char c : line.substr(line.find(' ') + 1))
        if (c != ' ' || text.empty() || text.back() != ' ') text += c;
    return text;
}

TEST(PrettyLines, SayWhatBecameOfAnEvent) {
    const PrettyLines lines(Paint(ColorMode::never, -1), -1);
    vorn_trace_info plain = alert(vorn_retrace::VORN_RISK_LEVEL_HIGH), repeat = plain, container = plain, chain = plain;
    repeat.set_err_code(vorn_retrace::ERROR_CODE_TRACE_FILTERED);
    container.mutable_threat()->set_containerid("c0ffee");
    container.mutable_threat()->add_alert_rule();
    chain.mutable_trace_event()->add_process_list();
    chain.mutable_trace_event()->add_file_open_list();
    chain.mutable_trace_event()->add_edge_list();
    vorn_trace_info failed = plain, batch;
    failed.set_err_code(vorn_retrace::ERROR_CODE_TRACE_TIMEOUT);
    for (const int hits : {2, 3}) batch.add_dup_alerts()->set_dup_count(hits);
    const std::string head = "high R-1 sh\\x1b[2J[7] ", who = ": Name 01234567\n";
    const std::tuple<EVENT_ID, EVENT_ID, vorn_trace_info, std::string> rows[] = {
        {769, 1536, plain, "report " + head + "trace follows" + who},
        {769, 1536, repeat, "report " + head + "not traced, repeat" + who},
        {769, 1538, container, "report high R-1+1 sh\\x1b[2J[7] not traced, container c0ffee" + who},
        {769, 1281, container, "report high R-1+1 sh\\x1b[2J[7] trace follows" + who},
        {769, 1541, {}, "report - - - reported: brute force 01234567\n"},
        {770, 1536, chain, "trace " + head + "chain of 2 vertices, 1 edge" + who},
        {770, 1536, failed, "trace " + head + "trace ended with ERROR_CODE_TRACE_TIMEOUT" + who},
        {770, 1281, batch, "repeats - - - 2 alerts were hit again, 5 times in all: IOC: DNS hit 01234567\n"},
        {770, 1794, {}, "expansion - - - no chain: expand a chain 01234567\n"},
    };
    for (const auto& [id, source, message, expected] : rows)
        EXPECT_EQ(squeezed(lines.event(Event(id, source, message.SerializeAsString()).record)), expected);
    EXPECT_EQ(squeezed(lines.event(Event(769, 1536, "\xff", nullptr).record)),
              "report - - - 1 bytes that are no message: IOA alert\n");
    PrettyLines untraced(Paint(ColorMode::always, -1), -1);
    untraced.set_tracing(false);
    EXPECT_NE(untraced.event(Event(769, 1536, plain.SerializeAsString()).record).find("\033[1;33mhigh    \033[0m"),
              std::string::npos);
    EXPECT_EQ(untraced.event(Event(769, 1536, plain.SerializeAsString()).record).find("trace follows"),
              std::string::npos);
}

TEST(PrettyLines, RemarkOnWhatGivesNoLineOtherwise) {
    const PrettyLines lines(Paint(ColorMode::never, -1), -1);
    const std::pair<const char*, const char*> rows[] = {
        {"start handle 1536!", ""},
        {"The event is in the hot cache.", ""},
        {"Trigger rule only, skip. guid:G1", "lost - - - trigger rules only: IOA alert G1\n"},
        {"event invoke failed! guid:G2", "lost - - - not sent: IOA alert G2\n"},
        {"alert trace dropped, guid:G3", "trace - - - trace dropped: IOA alert G3\n"},
        {"alert trace retry, guid:G4", "trace - - - trace put off: IOA alert G4\n"},
    };
    Figures figures;
    for (const auto& [text, expected] : rows) {
        const std::string line = std::string("[PID:7    ]\t[INFO]\t[zelreshdl] [file.cpp(12)] ") + text;
        EXPECT_EQ(squeezed(lines.remark(figures.log_line(1, ZEL_LOG_INFO, line))), expected) << text;
    }
}

TEST(Visible, LeavesNothingThatMovesTheCursor) {
    const std::pair<std::string, const char*> rows[] = {{"caf\u00e9\n", "caf\u00e9\\x0a"},
                                                        {"a\u0085b", "a\\xc2\\x85b"},
                                                        {"\xff\u00e9", "\\xff\u00e9"},
                                                        {"\x7f", "\\x7f"}};
    for (const auto& [text, expected] : rows) EXPECT_EQ(visible(text), expected);
}

// --- how it goes ---

Account account_of(uint64_t in, uint64_t full) {
    Account account;
    account.log = true;
    KindFigures& kind = account.totals.kinds[event_id::ioa_alert];
    kind.in = in;
    kind.queued = in - full;
    kind.queue_full = full;
    kind.begun = kind.reported = 1;
    account.totals.waiting_traces = 3;
    return account;
}

TEST(StatusLine, TellsRatesOfTheLastSecond) {
    const StatusLine::Time begin{};
    StatusLine status(begin);
    using std::chrono::milliseconds;
    EXPECT_EQ(status.text(begin, 0, account_of(10, 0)),
              "0 s  in 10 (0/s)  out 1 (0/s)  shed 0 (0/s)  queue 9  traces 3  bus 0  line 0");
    status.text(begin + milliseconds(900), 9, account_of(1000, 0));
    EXPECT_EQ(status.text(begin + milliseconds(2000), 40, account_of(50, 8)),
              "2 s  in 50 (20/s)  out 1 (0/s)  shed 8 (4/s)  queue 41  traces 3  bus 0  line 40");
}

// Each family has its HELP and its TYPE before its samples, and a sample is a name, labels and a number.
TEST(Metrics, FollowTheTextFormat) {
    const SinkAccount sink{.acknowledged = 7, .shed_size = 2};
    const std::string text = metrics_text(account_of(50, 8), {.running = true, .lines = 12, .sink = sink});
    std::istringstream lines(text);
    std::string family, kind;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string hash, what;
        if (line.starts_with("# HELP ")) {
            words >> hash >> what >> family;
            kind.clear();
            EXPECT_THAT(line, testing::MatchesRegex("# HELP [a-z_]+ .+\\."));
        } else if (line.starts_with("# TYPE ")) {
            std::string name;
            words >> hash >> what >> name >> kind;
            EXPECT_EQ(name, family);
            EXPECT_EQ(kind, family.ends_with("_total") ? "counter" : "gauge") << line;
        } else {
            EXPECT_TRUE(line.starts_with(family) && !kind.empty()) << line;
            EXPECT_THAT(line.substr(family.size()),
                        testing::MatchesRegex("(\\{[a-z]+=\"[^\"]*\"(,[a-z]+=\"[^\"]*\")*\\})? [0-9.e+]+"));
        }
    }
    for (const char* line : {"zelhost_running 1", "zelhost_input_lines_total 12", "zelhost_event_queue_events 41",
                             "zelhost_events_published_total{event=\"1536\"} 50", "zelhost_traces_waiting 3",
                             "zelhost_events_unreported_total{event=\"1536\",reason=\"shed, queue full\"} 8",
                             "zelhost_sink_acknowledged_total 7", "zelhost_sink_shed_total{reason=\"size\"} 2"})
        EXPECT_NE(text.find(std::string("\n") + line + "\n"), std::string::npos) << line;
    EXPECT_EQ(metrics_text({}, {}).find("zelhost_event_queue_events"), std::string::npos) << "known only by the log";
}

TEST(MetricsFile, ReplacesTheFileBehindALinkAndNothingElse) {
    const std::filesystem::path folder = testing::TempDir() + "metrics_" + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    std::filesystem::create_symlink("real", folder / "link");
    std::ofstream(folder / "real") << "old";
    MetricsFile(folder / "link").replace("new");
    std::string text;
    std::getline(std::ifstream(folder / "real"), text);
    EXPECT_EQ(text, "new");
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 2) << "a temporary file is left";
    EXPECT_THROW(MetricsFile{folder}, Failure);
    EXPECT_THROW(MetricsFile{"/dev/null"}, Failure);
    std::filesystem::remove_all(folder);
}

}  // namespace
