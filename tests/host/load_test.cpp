// What generates and measures a load: mixtures, histogram, due times, queues, backlog, and the checks of the account.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "host/lib/alert.h"
#include "host/lib/failure.h"
#include "host/load/backlog.h"
#include "host/load/checks.h"
#include "host/load/due_times.h"
#include "host/load/histogram.h"
#include "host/load/mixture.h"
#include "host/load/queue_peaks.h"
#include "platform/zel_support.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

// Keeps each event as a text: its id, what tells it apart, and its bytes.
class Kept : public EventSink {
public:
    void take(uint32_t event_id, const char* data, uint64_t size, uint64_t number) override {
        if (number != kNoNumber) {
            EXPECT_THAT(std::string(data, size), HasSubstr(guid_text(number)));
        }
        events.push_back(std::to_string(event_id) + (data == nullptr ? " none" : " " + std::string(data, size)));
    }
    void take(const ST_DNS_NATIVE& record, const char* query_name) override {
        events.push_back("1281 " + std::to_string(record.uKind) + " " + std::to_string(record.ullHead[12]) +
                         query_name);
    }

    std::vector<std::string> events;
};

std::vector<std::string> made(uint32_t seed, uint32_t number, const Mix& mix, int count, int per_rule = 0) {
    Kept kept;
    Mixture mixture(kept, seed, number, mix, per_rule);
    for (int i = 0; i < count; ++i) mixture.make_one();
    return kept.events;
}

TEST(Mixture, OneSeedMakesTheSameBytes) {
    const auto first = made(7, 1, usual_mix(), 500);
    EXPECT_EQ(first, made(7, 1, usual_mix(), 500));
    EXPECT_NE(first, made(8, 1, usual_mix(), 500));
    EXPECT_NE(first, made(7, 2, usual_mix(), 500));
    EXPECT_NE(first, made(7, 1, usual_mix(), 500, 4));
}

TEST(Mixture, EachKindMakesItsOwnEvents) {
    const std::map<std::string, std::string> ids = {{"memory", "1538"}, {"finding", "154"},    {"detection", "154"},
                                                    {"kov", "1793"},    {"expand", "1794"},    {"ignored", "2304"},
                                                    {"dns", "1281"},    {"dns-repeat", "1281"}};
    for (const Mixture::Kind& kind : Mixture::kinds()) {
        SCOPED_TRACE(kind.name);
        const auto events = made(1, 1, parse_mix(std::string(kind.name) + "=1"), 3);
        ASSERT_EQ(events.size(), 3u);
        const auto id = ids.find(kind.name);
        const std::string wanted = id == ids.end() ? "1536" : id->second;
        const bool any_id = std::string_view("bad garbage no-data").find(kind.name) != std::string_view::npos;
        EXPECT_THAT(events, testing::Each(testing::StartsWith(any_id ? "" : wanted)));
    }
}

// The shares of a mix are those of the events, give or take what chance does.
TEST(Mixture, DrawsByShare) {
    const auto events = made(1, 1, parse_mix("kov=3,expand=1"), 4000);
    EXPECT_NEAR(static_cast<double>(std::ranges::count_if(events, [](const auto& e) { return e.starts_with("1793"); })),
                3000, 150);
}

TEST(Mixture, AMixThatCannotBeReadIsRefused) {
    const std::pair<const char*, const char*> rows[] = {
        {"", "form KIND=SHARE"},          {"alert", "form KIND=SHARE"},    {"alert=1,", "form KIND=SHARE"},
        {"alerts=1", "no kind of event"}, {"alert=", "share of alert"},    {"alert=1x", "share of alert"},
        {"alert=-1", "share of alert"},   {"kov=1000001", "share of kov"}, {"alert=0,kov=0", "above 0"},
    };
    for (const auto& [text, reason] : rows) {
        SCOPED_TRACE(text);
        try {
            parse_mix(text);
            ADD_FAILURE() << "accepted";
        } catch (const Failure& e) {
            EXPECT_THAT(e.what(), HasSubstr(reason));
        }
    }
}

// Against the sorted times themselves, over all magnitudes.
TEST(Histogram, QuantilesAreNearAndTheHighestIsExact) {
    std::mt19937_64 random(3);
    for (const int bits : {1, 6, 7, 12, 30, 62}) {
        SCOPED_TRACE(bits);
        Histogram histogram;
        std::vector<int64_t> times;
        for (int i = 0; i < 5000; ++i) {
            times.push_back(static_cast<int64_t>(random() >> (64 - bits)));
            histogram.add(Histogram::Microseconds(times.back()));
        }
        std::ranges::sort(times);
        EXPECT_EQ(histogram.count(), 5000u);
        EXPECT_EQ(histogram.highest().count(), times.back());
        for (const double share : {0.0002, 0.5, 0.99, 1.0}) {
            const int64_t exact = times[static_cast<size_t>(share * 5000 + 0.5) - 1];
            const int64_t found = histogram.quantile(share).count();
            EXPECT_GE(found, exact) << share;
            EXPECT_LE(found - exact, exact / 64) << share;
        }
    }
}

TEST(Histogram, NothingAndTimesBelowZeroCountAsZero) {
    Histogram histogram;
    EXPECT_EQ(histogram.quantile(0.99), 0us);
    histogram.add(-5us);
    EXPECT_EQ(histogram.quantile(1), 0us);
    EXPECT_EQ(histogram.count(), 1u);
}

TEST(DueTimes, EachIsTakenOnceAndOldOnesAreForgotten) {
    DueTimes times(2);
    const DueTimes::Clock::time_point due{5s};
    const uint64_t one = uint64_t{1} << 32;
    const uint64_t two = uint64_t{2} << 32;
    times.note(one, due);
    times.note(two, due + 1s);
    EXPECT_EQ(times.take(one), due);
    EXPECT_EQ(times.take(one), std::nullopt);
    times.note(two + (1 << 16), due + 2s);  // in the place of the other
    EXPECT_EQ(times.take(two), std::nullopt);
    EXPECT_EQ(times.take(two + (1 << 16)), due + 2s);
    for (const uint64_t strange : {uint64_t{0}, uint64_t{7}, uint64_t{3} << 32, UINT64_MAX})
        EXPECT_EQ(times.take(strange), std::nullopt) << strange;
}

// A line as the plug-in writes it, through the counter that knows its rows.
LogLine line(Figures& figures, const std::string& text) {
    static std::string kept;
    kept = "[PID:1]\t[DEBUG]\t[zelreshdl] [file.cpp(1)] " + text;
    return figures.log_line(1, ZEL_LOG_DEBUG, kept);
}

TEST(QueuePeaks, ComeFromAppendsAndRefusals) {
    Figures figures;
    QueuePeaks peaks;
    EXPECT_TRUE(peaks.line(line(figures, "[work queue count : 17]")));
    EXPECT_TRUE(
        peaks.line(line(figures, "The queue reached the threshold. Event queue:9, trc queue:101, delay queue:4")));
    EXPECT_TRUE(peaks.line(line(figures, "[work queue count : 3]")));
    EXPECT_FALSE(peaks.line(line(figures, "start handle 1536!")));
    EXPECT_EQ(peaks.event, 17u);
    EXPECT_EQ(peaks.trc, 101u);
    EXPECT_EQ(peaks.delay, 4u);
}

// A prediction is followed until the alert that was pushed last has its end, one at a time.
TEST(Backlog, FollowsAPredictionToItsEnd) {
    Figures figures;
    Backlog backlog;
    Backlog::Clock::time_point now{};
    const auto at = [&](std::chrono::milliseconds time, const std::string& text) {
        backlog.line(line(figures, text), now + time);
    };
    const std::string push = "node event id: 1536, process count: 1, risk level: 3, guid: ";
    at(0ms, "predict delay time: 900");  // nothing waits
    at(1ms, push + "A, push into eliminator");
    at(2ms, push + "B, push into eliminator");
    at(10ms, "alert trace success, guid:A");
    at(10ms, "predict delay time: 70");
    at(12ms, "predict delay time: 60");  // another is followed already
    at(30ms, "alert trace retry, guid:B");
    EXPECT_EQ(backlog.last(), std::nullopt);
    at(50ms, "alert trace success, guid:B");
    EXPECT_EQ(backlog.sums().count, 1u);
    EXPECT_EQ(backlog.last()->predicted, 70ms);
    EXPECT_EQ(backlog.last()->measured, 40ms);
    at(50ms, "predict delay time: 5");  // nothing waits any more

    at(60ms, push + "C, push into eliminator");
    at(61ms, "predict delay time: 100");
    at(61ms, "drop trace will decrease: 30ms");
    at(71ms, "alert trace dropped, guid:C");
    EXPECT_EQ(backlog.sums().count, 2u);
    EXPECT_EQ(backlog.last()->predicted, 70ms);
    EXPECT_EQ(backlog.last()->measured, 10ms);
    EXPECT_EQ(backlog.sums().highest_measured, 40ms);
}

// An account that closes has no failed check; each fault is named.
TEST(Checks, AFaultIsNamed) {
    Account sound;
    sound.log = true;
    KindFigures& kind = sound.totals.kinds[event_id::port_scan];
    kind = {.in = 2, .got = 2, .queued = 2, .begun = 2, .reported = 2};
    sound.bus.published = 2;
    sound.bus.sent = 2;
    const Terms stopped{.settled = false};
    EXPECT_EQ(failed_text(check_account(sound, stopped)), "");

    const std::pair<void (*)(Account&), const char*> faults[] = {
        {[](Account& a) { ++a.bus.published; }, "accepted by the bus"},
        {[](Account& a) { --a.bus.sent; }, "seen by the host"},
        {[](Account& a) { a.bus.alive = 1; }, "never released"},
        {[](Account& a) { --a.totals.kinds[event_id::port_scan].reported; }, "on the alarm worker"},
        {[](Account& a) { --a.totals.kinds[event_id::port_scan].begun; }, "discarded from the queue"},
        {[](Account& a) { --a.totals.kinds[event_id::port_scan].queued; }, "at the intake"},
        {[](Account& a) { ++a.totals.kinds[event_id::ioa_alert].succeeded; }, "successes of the trace stage"},
    };
    for (const auto& [spoil, words] : faults) {
        Account account = sound;
        spoil(account);
        EXPECT_THAT(failed_text(check_account(account, stopped)), HasSubstr(words));
    }
    // The plug-in's own figures are part of it when nothing was stopped under load.
    EXPECT_THAT(failed_text(check_account(sound, {})), HasSubstr("recvAlarmCount"));
}

TEST(Checks, WithoutTheLogTheBusAndTheReportsAreCompared) {
    Account sound;
    sound.totals.kinds[event_id::port_scan] = {.in = 2, .reported = 2};
    sound.bus.published = 2;
    sound.bus.sent = 2;
    sound.bus.delivered = 2;
    sound.reports.add(
        R"("zelreshdl":{"figures":{"recvAlarmCount":2,"eventQueueTotalCount":1,"eventQueueOverflowCount":1}})");
    EXPECT_EQ(failed_text(check_account(sound, {})), "");
    const std::pair<void (*)(Account&), const char*> faults_of_the_bus[] = {
        {[](Account& a) { ++a.bus.published; }, "published by the host"},
        {[](Account& a) { --a.bus.delivered; }, "delivered or discarded"},
        {[](Account& a) { ++a.totals.kinds[event_id::ioa_alert].reported; }, "sentToMbCount"},
        {[](Account& a) { a.reports.add(R"("zelreshdl":{"figures":{"recvAlarmCount":1}})"); },
         "recvAlarmCount / events delivered"},
        {[](Account& a) { a.reports.add(R"("zelreshdl":{"figures":{"hotCacheHitCount":1}})"); },
         "queued, refused and merged"},
    };
    for (const auto& [spoil, words] : faults_of_the_bus) {
        Account account = sound;
        spoil(account);
        EXPECT_THAT(failed_text(check_account(account, {})), HasSubstr(words));
    }
}

}  // namespace
}  // namespace zelhost
