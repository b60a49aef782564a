// The parts of the pipeline, each by itself.
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "host/lib/event_names.h"
#include "pipeline/event_rows.h"
#include "pipeline/rule_brake.h"
#include "pipeline/work_queue.h"
#include "platform/native_payloads.h"
#include "plugin/zelreshdl_engine.h"
#include "support/refusals.h"

namespace {

constexpr uint64_t kHourMs = 3'600'000;

TEST(EventRows, AgreeWithTheSubscriptionTables) {
    for (const bool pure : {false, true}) {
        std::multiset<EVENT_ID> wanted, asked;
        for (const EventRow& row : event_rows())
            if (pure ? row.subscribed_pure : row.subscribed) wanted.insert(row.id);
        if (!pure) wanted.insert(event_id::memory_trojan);  // the bus is asked for it twice
        for (const auto& entry : subscription_table(pure)) asked.insert(entry.uEventId);
        EXPECT_EQ(asked, wanted) << (pure ? "pure mode" : "full operation");
    }
}

TEST(EventRows, StandOnceAndWhatIsHandledIsBuilt) {
    std::set<EVENT_ID> ids;
    for (const EventRow& row : event_rows()) {
        EXPECT_TRUE(ids.insert(row.id).second) << row.id;
        EXPECT_TRUE(row.handle == nullptr || row.build != nullptr) << row.id;
        EXPECT_EQ(find_event_row(row.id), &row);
    }
    EXPECT_EQ(find_event_row(1535), nullptr);
}

TEST(EventRows, HaveWordsForPeopleWhenTheyAreSubscribed) {
    for (const EventRow& row : event_rows())
        EXPECT_TRUE(!row.subscribed || *zelhost::event_name(row.id) != '\0')
            << row.id << " has no row in event_names.h";
}

TEST(EventRows, RefuseASizeThatLeavesNoRoomForTheEndOfTheText) {
    char text[] = "x";
    ST_JSON_BUFFER document{.pData = text, .uSize = UINT64_MAX};
    Incoming incoming{&document, nullptr};
    EXPECT_EQ(find_event_row(event_id::ioa_alert)->build(incoming, event_id::ioa_alert), nullptr);
}

TEST(RuleBrake, CountsTheMatchesOfTheLastHour) {
    RuleBrake brake;
    for (int i = 0; i < 3; ++i) brake.CountRuleMatch("busy", 1000);
    brake.CountRuleMatch("other", 2000);
    EXPECT_TRUE(brake.is_within("busy", 3));
    EXPECT_FALSE(brake.is_within("busy", 2));
    EXPECT_TRUE(brake.is_within("never seen", 0));
    brake.expire(1000 + kHourMs, 4);  // exactly an hour old, and exactly as many as are kept
    EXPECT_FALSE(brake.is_within("busy", 2));
    brake.expire(1000 + kHourMs, 3);  // one too many: the oldest goes
    EXPECT_TRUE(brake.is_within("busy", 2));
    EXPECT_FALSE(brake.is_within("other", 0));
    brake.expire(1001 + kHourMs, 3);
    EXPECT_TRUE(brake.is_within("busy", 0));
    EXPECT_FALSE(brake.is_within("other", 0));
    brake.expire(0, 3);  // a machine that is up for less than an hour
    EXPECT_FALSE(brake.is_within("other", 0));
}

using Queue = WorkQueue<int>;

bool push(Queue& queue, int number) {
    Queue::Cell cell = Queue::make_cell();
    cell.front() = std::make_unique<int>(number);
    return queue.push(cell);
}

TEST(WorkQueue, KeepsWhatCameBeforeItsFirstOpenAndRefusesWhatComesAfterAClose) {
    Queue queue;
    EXPECT_TRUE(push(queue, 1));
    ASSERT_TRUE(queue.open());
    EXPECT_TRUE(push(queue, 2));
    EXPECT_EQ(queue.take_if([](int number) { return number == 2; }), nullptr);  // the front alone is asked
    EXPECT_EQ(*queue.take(), 1);
    queue.close();
    EXPECT_EQ(queue.size(), 0u);
    EXPECT_FALSE(push(queue, 3));
    ASSERT_TRUE(queue.open());
    EXPECT_EQ(queue.take(), nullptr);
    queue.close();
    zel_test::refused_mutex = 1;
    EXPECT_FALSE(queue.open());
    EXPECT_FALSE(push(queue, 4));
}

TEST(WorkQueue, LosesAndDoublesNothingWhileItOpensAndCloses) {
    Queue queue;
    std::atomic<int> pushed{0}, taken{0};
    std::atomic<bool> stop{false};
    std::thread pusher([&] {
        for (int i = 0; i < 20'000; ++i) pushed += push(queue, i);
        stop = true;
    });
    std::thread opener([&] {
        while (!stop) queue.open();
    });
    while (!stop) taken += queue.take() != nullptr;
    pusher.join();
    opener.join();
    while (queue.take() != nullptr) ++taken;
    EXPECT_EQ(taken, pushed);
}

}  // namespace
