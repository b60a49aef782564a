#include "host/record/record_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <retrace.pb.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "host/lib/failure.h"
#include "host/record/comparison.h"
#include "host/record/input.h"
#include "host/record/player.h"
#include "host/record/recorder.h"

namespace zelhost {
namespace {

using testing::HasSubstr;

record::Step answer(record::Role role, record::Question question, int64_t number) {
    record::Step step;
    step.set_role(role);
    step.mutable_answer()->set_question(question);
    step.mutable_answer()->set_number(number);
    return step;
}

record::Step input(record::Call call) {
    record::Step step;
    step.mutable_input()->set_call(call);
    return step;
}

record::Output event(uint32_t id, uint32_t source, const std::string& description) {
    vorn_retrace::vorn_trace_info message;
    message.mutable_threat()->set_alert_desc(description);
    record::Output output;
    output.mutable_event()->set_event_id(id);
    output.mutable_event()->set_source(source);
    output.mutable_event()->set_guid("g-1");
    output.mutable_event()->set_message(message.SerializeAsString());
    return output;
}

class Record : public testing::Test {
protected:
    Record() : path_((std::filesystem::temp_directory_path() / fmt::format("zel-record-{}", getpid())).string()) {}
    ~Record() override { std::filesystem::remove(path_); }

    void write(const std::vector<record::Step>& steps) const {
        RecordWriter writer(path_, {});
        for (const record::Step& step : steps) writer.add(step);
    }
    std::string bytes() const {
        std::ostringstream out;
        out << std::ifstream(path_).rdbuf();
        return out.str();
    }
    void put(const std::string& text) const { std::ofstream(path_) << text; }
    int count(RecordReader& reader) const {
        int steps = 0;
        for (record::Step step; reader.next(step);) ++steps;
        return steps;
    }

    const std::string path_;
};

// Whatever byte a writer was killed at: what was complete is there, and the rest is no more than cut.
TEST_F(Record, IsWholeUpToItsLastCompleteEntryWhereverItIsCut) {
    {
        RecordWriter writer(path_, {});
        for (int i = 0; i < 4; ++i) {
            writer.add(answer(record::ALARM, record::TICKS, i));
            writer.flush();
        }
    }
    const std::string whole = bytes();
    int most = 0;
    for (size_t size = 0; size <= whole.size(); ++size) {
        put(whole.substr(0, size));
        try {
            RecordReader reader(path_);
            const int steps = count(reader);
            EXPECT_GE(steps, most) << size;
            EXPECT_FALSE(reader.damaged()) << size;
            EXPECT_EQ(reader.cut_short(), reader.read_bytes() != size) << size;
            most = steps;
        } catch (const Failure&) {
            EXPECT_EQ(most, 0) << size;
        }
    }
    EXPECT_EQ(most, 4);
}

// A changed bit is found by the checksum, or it is in a length, which then leads beyond the end.
TEST_F(Record, NeverGivesADamagedStep) {
    write({answer(record::ALARM, record::TICKS, 7), answer(record::ALARM, record::TICKS, 8)});
    const std::string whole = bytes();
    const size_t head = whole.find('\n') + 1;
    for (size_t at = head; at < whole.size(); ++at) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
        put(damaged);
        try {
            RecordReader reader(path_);
            record::Step step;
            for (int i = 7; reader.next(step); ++i) EXPECT_EQ(step.answer().number(), i) << at;
        } catch (const Failure&) {
        }
    }
}

TEST_F(Record, IsRefusedByName) {
    const struct {
        const char* text;
        const char* words;
    } rows[] = {
        {"", "is no record"},
        {"{\"event\":769}\n", "is no record"},
        {"zelreshdl record 0\n", "a record of version 0, and this zelhost reads version 1: record it again"},
        {"zelreshdl record 2\n", "a record of version 2, and this zelhost reads version 1: take a newer zelhost"},
        {"zelreshdl record 1\n", "without its head"},
    };
    for (const auto& row : rows) {
        put(row.text);
        try {
            const RecordReader reader(path_);
            ADD_FAILURE() << row.text;
        } catch (const Failure& e) {
            EXPECT_THAT(e.what(), HasSubstr(row.words));
        }
    }
}

// --- what goes in ---

TEST(RecordInput, KeepsEachTextAndEachNullOfADnsHit) {
    ST_DNS_VARIANT_1 variant{};
    variant.uPid = 7;
    variant.pszProcess[6] = "seventh";
    variant.pszTail[1] = "";
    variant.uShort[1] = 65535;
    variant.uLong[0] = 4000000000;
    ST_DNS_NATIVE native{};
    native.uKind = 1;
    native.ullHead[12] = UINT64_MAX;
    native.uHead[2] = 3;
    native.pszText[0] = "first";
    native.pVariant = &variant;
    const record::Dns dns =
        input_to_record({.kind = Input::dns, .number = 1281, .record = &native, .query_name = nullptr}).dns();
    EXPECT_EQ(dns.head(12), UINT64_MAX);
    EXPECT_EQ(dns.texts(0).bytes(), "first");
    EXPECT_FALSE(dns.texts(1).has_bytes());
    EXPECT_FALSE(dns.query_name().has_bytes());
    EXPECT_EQ(dns.variant().process(6).bytes(), "seventh");
    EXPECT_TRUE(dns.variant().tail(1).has_bytes());
    EXPECT_EQ(dns.variant().longs(0), 4000000000);

    // Behind the pointer of an unknown kind nothing is read.
    native.uKind = 9;
    native.pVariant = reinterpret_cast<const void*>(8);
    EXPECT_TRUE(input_to_record({.kind = Input::dns, .record = &native}).dns().has_variant());
}

TEST(RecordInput, TellsNoPayloadFromAnEmptyOne) {
    EXPECT_FALSE(input_to_record({.kind = Input::publish, .number = 1541}).publish().has_data());
    EXPECT_TRUE(input_to_record({.kind = Input::publish, .number = 1541, .data = ""}).publish().has_data());
}

// --- what comes out ---

TEST(Comparison, MatchesByKindAndOrderWithinEachWorker) {
    Comparison comparison;
    comparison.expect(event(769, 1536, "a"), 0);
    comparison.expect(event(770, 1536, "a"), 0);
    comparison.expect(event(769, 1536, "b"), 0);
    // The trace worker is quicker this time.
    comparison.take(event(770, 1536, "a"));
    comparison.take(event(769, 1536, "a"));
    EXPECT_FALSE(comparison.equal(false));
    comparison.take(event(769, 1536, "b"));
    EXPECT_TRUE(comparison.equal(false)) << comparison.text(false);
}

TEST(Comparison, NamesTheFirstDifferenceFieldByField) {
    Comparison comparison;
    comparison.expect(event(769, 1536, "a"), 0);
    comparison.expect(event(769, 1536, "one"), 2'500'000);
    comparison.take(event(769, 1536, "a"));
    comparison.take(event(769, 1538, "two"));
    EXPECT_FALSE(comparison.equal(false));
    EXPECT_THAT(
        comparison.text(false),
        HasSubstr("first difference: number 2 of 769 of the alarm worker, at 2.500 s, alert g-1; record -> now:\n"
                  "  source: 1536 -> 1538\n"
                  "  modified: threat.alert_desc: \"one\" -> \"two\"\n"));
}

TEST(Comparison, CountsWhatIsMissingAndWhatIsTooMuch) {
    Comparison comparison;
    comparison.expect(event(769, 1536, "a"), 1'000'000);
    EXPECT_FALSE(comparison.equal(true));
    EXPECT_THAT(comparison.text(false), HasSubstr("1 missing from 1.000 s on"));
    comparison.take(event(769, 1536, "a"));
    comparison.take(event(769, 1536, "b"));
    EXPECT_FALSE(comparison.equal(false));
    // Behind the end of a record whose writer was killed nothing can be said.
    EXPECT_TRUE(comparison.equal(true));
}

TEST(Comparison, ShowsTheMembersOfAMemoryCheckThatDiffer) {
    Comparison comparison;
    comparison.expect(output_of(R"({"event":2305,"memory_check":{"pid":7,"path":"/a","user":null}})"), 0);
    comparison.take(output_of(R"({"event":2305,"memory_check":{"pid":8,"path":"/a","user":"root"}})"));
    EXPECT_THAT(comparison.text(false), HasSubstr("  pid: 7 -> 8\n  user: null -> \"root\"\n"));
}

TEST(Comparison, ComparesBytesWhereMessagesAreEqualFieldByField) {
    record::Output once = event(769, 1536, "a");
    record::Output again = once;
    // The same field twice: the last one counts.
    again.mutable_event()->set_message(once.event().message() + once.event().message());
    Comparison comparison;
    comparison.expect(once, 0);
    comparison.take(again);
    EXPECT_FALSE(comparison.equal(false));
    EXPECT_THAT(comparison.text(false), HasSubstr("which differ from byte"));
}

TEST(Comparison, TellsBatchesOfRepeatsAndExpansionsFromChains) {
    record::Output batch = event(770, 1281, "a");
    batch.mutable_event()->clear_guid();
    Comparison comparison;
    for (const record::Output& output : {batch, event(770, 1794, "a"), event(770, 1281, "a")}) {
        comparison.expect(output, 0);
        comparison.take(output);
    }
    EXPECT_THAT(comparison.text(false),
                testing::AllOf(HasSubstr("alarm worker, 770: 2 equal"), HasSubstr("trace worker, 770: 1 equal")));
}

// --- the order of a replay; this thread is the host's ---

class Playing : public Record {
protected:
    void play(const std::vector<record::Step>& steps) {
        write(steps);
        reader_.emplace(path_);
        player_.emplace(*reader_, 0, "/dev/null", [](const record::Output&, int64_t) {});
    }
    int64_t ask(record::Question question) {
        return player_->ask(question, [] { return Outside::Answer{-5}; }).number;
    }

    std::optional<RecordReader> reader_;
    std::optional<Player> player_;
};

TEST_F(Playing, GivesTheAnswersOfTheRecord) {
    play({input(record::START), answer(record::HOST, record::SECONDS, 1700000000),
          answer(record::HOST, record::LOCK, 0), input(record::STOP)});
    EXPECT_EQ(player_->next_input()->call(), record::START);
    EXPECT_EQ(ask(record::SECONDS), 1700000000);
    EXPECT_EQ(ask(record::LOCK), 0);
    EXPECT_EQ(player_->next_input()->call(), record::STOP);
    EXPECT_FALSE(player_->next_input());
    EXPECT_EQ(player_->departure(), "");
    // Behind the end the outside is asked itself, and clocks go on.
    EXPECT_EQ(ask(record::GUID), -5);
    EXPECT_GE(ask(record::SECONDS), 1700000000);
}

// The alarm worker comes later than the host and is the first all the same.
TEST_F(Playing, LetsThreadsHoldAMutexInTheOrderOfTheRecord) {
    play({answer(record::ALARM, record::LOCK, 0), answer(record::HOST, record::LOCK, 0),
          answer(record::ALARM, record::TICKS, 7), answer(record::HOST, record::TICKS, 8)});
    std::mutex mutex;
    std::vector<record::Role> holders;
    const auto hold = [&] {
        player_->ask(record::LOCK, [&] {
            const std::lock_guard lock(mutex);
            holders.push_back(role_of_this_thread());
            return Outside::Answer{};
        });
    };
    int64_t worker_ticks = 0;
    std::thread worker([&] {
        pthread_setname_np(pthread_self(), "zelreshdl_alarm");
        hold();
        worker_ticks = ask(record::TICKS);
    });
    hold();
    EXPECT_EQ(ask(record::TICKS), 8);
    worker.join();
    EXPECT_EQ(worker_ticks, 7);
    EXPECT_THAT(holders, testing::ElementsAre(record::ALARM, record::HOST));
    EXPECT_EQ(player_->departure(), "");
}

TEST_F(Playing, TellsTheBusWhichEventIsNext) {
    record::Step delivery;
    delivery.set_role(record::BUS);
    delivery.mutable_delivery();
    record::Step output;
    output.set_role(record::BUS);
    *output.mutable_output() = event(769, 1536, "a");
    play({delivery, output, answer(record::BUS, record::LOCK, 0)});
    std::thread bus([&] {
        pthread_setname_np(pthread_self(), "lummb_dispatch");
        EXPECT_EQ(player_->next_of_bus(), LUMMB_INCOMING);
        player_->delivery();
        player_->delivered();
        EXPECT_EQ(player_->next_of_bus(), LUMMB_SENT);
        player_->output([](const record::Output* then) {
            ASSERT_NE(then, nullptr);
            EXPECT_EQ(then->event().event_id(), 769);
        });
        EXPECT_EQ(ask(record::LOCK), 0);
        EXPECT_EQ(player_->next_of_bus(), LUMMB_EITHER);  // the record has ended
        player_->output([](const record::Output* then) { EXPECT_EQ(then, nullptr); });
    });
    bus.join();
    EXPECT_EQ(player_->departure(), "");
}

TEST_F(Playing, PutsAnEmptyFileInThePlaceOfOneThatOpens) {
    play({});
    EXPECT_EQ(player_->place_of_file(0), "/dev/null");
    EXPECT_EQ(player_->place_of_file(-2), "/dev/null");
    EXPECT_EQ(player_->place_of_file(-1), "/dev/null/none");
}

TEST_F(Playing, GoesOnWithoutOrderWhenThePluginAsksForSomethingElse) {
    play({answer(record::HOST, record::TICKS, 100), answer(record::HOST, record::FILE_SIZE, 4096),
          answer(record::TRACE, record::LOCK, 0), answer(record::HOST, record::TRACE_CREATE, -3), input(record::STOP)});
    EXPECT_EQ(ask(record::TICKS), 100);
    EXPECT_EQ(ask(record::TRACE_CREATE), -3);
    EXPECT_THAT(player_->departure(), HasSubstr("the host comes for a chain, and the record has the size of a file"));
    // What was passed over is still there for who asks, and so is what the host did.
    EXPECT_EQ(ask(record::FILE_SIZE), 4096);
    EXPECT_EQ(player_->next_input()->call(), record::STOP);
    EXPECT_GE(ask(record::TICKS), 100);
    // A chain that the record does not have is no chain.
    EXPECT_LT(ask(record::TRACE_CREATE), 0);
}

}  // namespace
}  // namespace zelhost
