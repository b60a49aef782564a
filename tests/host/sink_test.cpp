// What a sink decides about its messages, without a server; how subjects hold any text; how views of alerts are joined.
#include "host/lib/sink_keeper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "host/lib/alert_views.h"
#include "host/lib/failure.h"
#include "host/lib/nats_server.h"
#include "host/lib/subject.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;
using Kind = LinkNews::Kind;
using testing::ElementsAre;

constexpr uint64_t kMiB = 1 << 20;

// --- subjects ---

TEST(Subject, TokensHoldAnyTextAndNeverCollide) {
    const std::vector<std::string> texts = {
        "", "%", "web-1_A", "a.b", "a%2Eb", "a*>\r\n", "a b", "\xff", "\xc3\xa9", std::string("\0", 1), "%%", "=2E"};
    std::set<std::string> tokens;
    for (const std::string& text : texts) {
        const std::string token = subject_token(text);
        EXPECT_TRUE(is_subject(token)) << token;
        EXPECT_EQ(token.find('.'), std::string::npos) << token;
        EXPECT_EQ(text_of_token(token), text) << token;
        tokens.insert(token);
    }
    EXPECT_EQ(tokens.size(), texts.size());
    for (const char* wrong : {"", "%2", "%2e", "%41", "a.b", "%G0", "a%"}) EXPECT_FALSE(text_of_token(wrong)) << wrong;
}

TEST(NatsAddress, TellsServersAndSubject) {
    const NatsAddress address = parse_nats_address("tls://a:1,b,[::1]:3/fleet.alerts");
    EXPECT_THAT(address.servers, ElementsAre("tls://a:1", "tls://b", "tls://[::1]:3"));
    EXPECT_EQ(address.subject, "fleet.alerts");
    EXPECT_TRUE(address.tls);
    for (const char* wrong :
         {"", "a:1/x", "http://a/x", "nats://a", "nats://a/", "nats:///x", "nats://a,/x", "nats://a/x.*",
          "nats://a/x..y", "nats://a/.x", "nats://a/x y", "nats://me:word@a/x", "nats://a/x>"})
        EXPECT_THROW(parse_nats_address(wrong), Failure) << wrong;
}

// --- the keeper ---

class FakeLink : public SinkLink {
public:
    void send(SharedMessage message) override { sent.push_back(message->number); }
    std::vector<int64_t> take() { return std::exchange(sent, {}); }
    std::vector<int64_t> sent;
};

class Keeper : public testing::Test {
protected:
    Keeper() { open(8 * kMiB); }
    ~Keeper() override { std::filesystem::remove_all(folder_); }

    // As a new run does, with what the one before has left.
    void open(uint64_t limit) {
        keeper.reset();
        store.reset();
        store.emplace(folder_, limit);
        keeper.emplace(*store, link, 1h);
        handed_over = 0;
    }
    void hand_over(int64_t first, int64_t last, size_t size = 100) {
        std::vector<SharedMessage> messages;
        for (int64_t number = first; number <= last; ++number)
            messages.push_back(std::make_shared<SinkMessage>(SinkMessage{
                number, now.time_ms, 769, 1536, "A", "id" + std::to_string(number), std::string(size, 'x')}));
        handed_over += messages.size();
        keeper->take(messages, now);
        keeper->tick(now);
    }
    void hear(LinkNews news) {
        keeper->hear(news, now);
        keeper->tick(now);
    }
    void acknowledge(int64_t first, int64_t last, bool known = false) {
        for (int64_t number = first; number <= last; ++number) hear({Kind::acknowledged, number, known});
    }
    void pass(std::chrono::milliseconds time) {
        now.steady += time;
        now.time_ms += time.count();
        keeper->tick(now);
    }
    // The account, which must close.
    SinkAccount account() {
        SinkAccount account = keeper->account(now);
        account.handed_over = handed_over;
        EXPECT_EQ(account.difference(), 0);
        return account;
    }

    const std::filesystem::path folder_ = testing::TempDir() + "sink_" + std::to_string(getpid());
    FakeLink link;
    std::optional<SinkStore> store;
    std::optional<SinkKeeper> keeper;
    SinkKeeper::Now now{std::chrono::steady_clock::time_point(100h), 1'000'000'000};
    uint64_t handed_over = 0;
};

TEST_F(Keeper, AMessageThatTheServerTakesNeverTouchesTheBuffer) {
    hear({Kind::up});
    hand_over(1, 3);
    EXPECT_THAT(link.take(), ElementsAre(1, 2, 3));
    acknowledge(1, 2);
    acknowledge(3, 3, true);
    acknowledge(3, 3);
    EXPECT_EQ(account().acknowledged, 3u) << "an answer that comes twice counts once";
    EXPECT_EQ(account().known, 1u);
    EXPECT_EQ(account().spilled, 0u);
    EXPECT_TRUE(keeper->is_empty());
}

TEST_F(Keeper, WhatWasOnItsWayAtABreakIsSentAgainAndFirst) {
    hear({Kind::up});
    hand_over(1, 3);
    acknowledge(2, 2);
    hear({Kind::down, 0, false, "gone"});
    hand_over(4, 5);
    EXPECT_THAT(link.take(), ElementsAre(1, 2, 3));
    EXPECT_EQ(account().buffered, 4u);
    EXPECT_FALSE(keeper->has_hope(now));
    hear({Kind::up});
    EXPECT_THAT(link.take(), ElementsAre(1)) << "one message tries a server that has come back";
    acknowledge(1, 1, true);
    EXPECT_THAT(link.take(), ElementsAre(3, 4, 5));
    hand_over(6, 6);
    EXPECT_THAT(link.take(), ElementsAre(6)) << "nothing waits in the buffer unsent";
    acknowledge(3, 6);
    EXPECT_EQ(account().acknowledged, 6u);
    EXPECT_TRUE(keeper->is_empty());
}

TEST_F(Keeper, AServerThatIsTooSlowMakesTheBufferGrowAndOrderIsKept) {
    hear({Kind::up});
    hand_over(1, 3000);
    const std::vector<int64_t> first = link.take();
    ASSERT_LT(first.size(), 3000u);
    ASSERT_EQ(first.back(), static_cast<int64_t>(first.size()));
    EXPECT_EQ(account().buffered, 3000 - first.size());
    std::vector<int64_t> sent = first;
    for (size_t at = 0; at < sent.size(); ++at) {
        acknowledge(sent[at], sent[at]);
        for (const int64_t number : link.take()) sent.push_back(number);
    }
    ASSERT_EQ(sent.size(), 3000u);
    EXPECT_TRUE(std::ranges::is_sorted(sent));
    EXPECT_TRUE(keeper->is_empty());
    EXPECT_EQ(account().acknowledged, 3000u);
}

TEST_F(Keeper, AFullBufferShedsItsOldest) {
    open(kMiB);
    hear({Kind::down, 0, false, "gone"});
    hand_over(1, 1000, 4000);
    const SinkAccount full = account();
    EXPECT_GT(full.shed_size, 0u);
    EXPECT_GT(full.buffered, 150u) << "a message takes little more room than it has bytes";
    EXPECT_LE(full.buffer_bytes, kMiB);
    EXPECT_LE(std::filesystem::file_size(store->file()), 4 * kMiB);
    hear({Kind::up});
    EXPECT_EQ(link.take().front(), 1001 - static_cast<int64_t>(full.buffered));
}

// What is on its way is at its end soon, and must not have two.
TEST_F(Keeper, AFullBufferNeverShedsWhatIsOnItsWay) {
    open(kMiB);
    hand_over(1, 100, 4000);
    hear({Kind::up});
    const std::vector<int64_t> sent = link.take();
    ASSERT_THAT(sent, testing::Not(testing::IsEmpty()));
    hand_over(101, 2000, 4000);
    EXPECT_GT(account().shed_size, 0u);
    for (const int64_t number : sent) acknowledge(number, number);
    EXPECT_EQ(account().acknowledged, sent.size());
}

TEST_F(Keeper, WhatIsTooOldIsShed) {
    hand_over(1, 50);
    pass(30min);
    hand_over(51, 52);
    EXPECT_DOUBLE_EQ(account().oldest_seconds, 1800);
    pass(31min);
    EXPECT_EQ(account().shed_age, 50u);
    EXPECT_EQ(account().buffered, 2u);
}

TEST_F(Keeper, ALaterRunSendsWhatAnEarlierOneHasLeft) {
    hear({Kind::up});
    hand_over(1, 3);
    hear({Kind::acknowledged, 1});
    keeper->end();
    EXPECT_EQ(account().buffered, 2u);
    EXPECT_EQ(account().in_memory, 0u);
    open(8 * kMiB);
    EXPECT_EQ(account().left_before, 2u);
    EXPECT_EQ(store->next_number(), 4);
    link.take();
    hear({Kind::up});
    EXPECT_THAT(link.take(), ElementsAre(2, 3));
    const std::vector<SharedMessage> left = store->read(2, 10, kMiB);
    ASSERT_EQ(left.size(), 2u);
    EXPECT_EQ(left[0]->id, "id2");
    EXPECT_EQ(left[0]->payload, std::string(100, 'x'));
}

// Each way in which a server says no, and what becomes of the message.
TEST_F(Keeper, AServerThatTakesNothingIsAskedAgainWithOneMessage) {
    hear({Kind::up});
    hand_over(1, 5);
    link.take();
    hear({Kind::later, 0, false, "no stream"});
    hear({Kind::later, 0, false, "no stream"});
    EXPECT_EQ(account().buffered, 5u);
    EXPECT_FALSE(keeper->has_hope(now));
    EXPECT_THAT(link.take(), ElementsAre());
    now.steady += 1s;
    hand_over(6, 6);
    EXPECT_THAT(link.take(), ElementsAre(1)) << "a message overtakes none in the buffer";
    hear({Kind::later, 1, false, "no stream"});
    pass(1s);
    EXPECT_THAT(link.take(), ElementsAre(1));
    hear({Kind::refused, 1, false, "too large"});
    EXPECT_EQ(account().refused, 1u);
    EXPECT_THAT(link.take(), ElementsAre(2));
    acknowledge(2, 2);
    EXPECT_THAT(link.take(), ElementsAre(3, 4, 5, 6));
    pass(11s);
    EXPECT_EQ(account().buffered, 4u) << "an answer that does not come ends the wait for it";
    pass(1s);
    EXPECT_THAT(link.take(), ElementsAre(3));
}

TEST_F(Keeper, ABufferBelongsToOneRunAndADamagedOneIsSaid) {
    EXPECT_THROW(SinkStore(folder_, kMiB), Failure);
    const std::filesystem::path other = folder_ / "other";
    std::filesystem::create_directories(other);
    std::ofstream(other / "buffer.db") << std::string(5000, 'z');
    EXPECT_THROW(SinkStore(other, kMiB), Failure);
    EXPECT_THROW(SinkStore("/dev/null/x", kMiB), Failure);
}

// --- views ---

StreamMessage message_of(const char* subject, const char* id, const char* source = "1536") {
    return {.sequence = 1,
            .behind = 0,
            .subject = subject,
            .id = id,
            .source = source,
            .payload =
                "\x0a\x01"
                "A"};
}

TEST(AlertViews, JoinAReportAndItsChainsInAnyOrder) {
    AlertViews views(kMiB);
    ASSERT_NE(views.add(message_of("f.770.A", "770.g.r.2")), nullptr);
    EXPECT_EQ(views.add(message_of("f.770.A", "770.g.r.2")), nullptr) << "twice";
    ASSERT_NE(views.add(message_of("f.769.B", "769.g.r.1")), nullptr) << "the GUID of another agent is another alert";
    EXPECT_EQ(views.add(message_of("f.2305.A", "2305.%.r.3")), nullptr);
    for (const char* bad : {"", "f", "769", "f.769.%zz"})
        EXPECT_EQ(views.add(message_of(bad, "769.g.r.1")), nullptr) << bad;
    for (const char* bad : {"", "769", "769.%zz.r"}) EXPECT_EQ(views.add(message_of("f.769.A", bad)), nullptr) << bad;
    views.add(message_of("f.770.A", "770.%.r.4"));
    views.add(message_of("f.770.A", "770.%.r.5"));
    const AlertView* joined = views.add(message_of("f.769.A", "769.g.r.9", "1281"));
    ASSERT_NE(joined, nullptr);
    EXPECT_EQ(view_line(*joined),
              "{\"agent\":\"A\",\"guid\":\"g\",\"source\":\"1536\",\"ids\":[\"770.g.r.2\",\"769.g.r.9\"],"
              "\"report\":{\"agent_id\":\"A\"},\"chains\":[{\"agent_id\":\"A\"}]}\n");
    const AlertViews::Counts counts = views.counts();
    EXPECT_EQ(counts.messages, 6u);
    EXPECT_EQ(counts.twice, 1u);
    EXPECT_EQ(counts.others, 8u);
    EXPECT_EQ(counts.joined, 1u);
    EXPECT_EQ(counts.reports, 1u);
    EXPECT_EQ(counts.chains, 2u) << "batches without a GUID are not joined";
    EXPECT_EQ(counts.agents.size(), 2u);
}

TEST(AlertViews, ForgetTheOldestAndNoMoreThanTheyMust) {
    AlertViews views(2000);
    for (int n = 0; n < 3; ++n) views.add(message_of("f.769.A", ("769.g" + std::to_string(n) + ".r.1").c_str()));
    EXPECT_FALSE(views.forget(false));
    views.add(message_of("f.770.A", "770.g0.r.2"));
    views.add(message_of("f.769.A", "769.g3.r.1"));
    const auto forgotten = views.forget(false);
    ASSERT_TRUE(forgotten);
    EXPECT_EQ(forgotten->guid, "g1") << "g0 has changed since";
    EXPECT_FALSE(views.forget(false));
    while (views.forget(true)) continue;
    EXPECT_EQ(views.counts().joined, 1u);
    EXPECT_EQ(views.counts().reports, 3u);
}

}  // namespace
}  // namespace zelhost
