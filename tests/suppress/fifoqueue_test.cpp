#include "suppress/fifoqueue.h"

#include <gmock/gmock.h>

#include <cstring>
#include <thread>

#include "common/statistics.h"
#include "retrace.pb.h"
#include "support/agent_folder.h"
#include "support/fake_clock.h"
#include "support/fake_dispatcher.h"
#include "support/log_capture.h"
#include "support/mutex_refusal.h"
#include "suppress/cityhash.h"

namespace {

using ResHdlCache::CFifoQueue;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using zel_test::LogLine;

constexpr const char* kSettings = "../config/zelreshdl.ini";
constexpr uint64_t kMinuteMs = 60'000;
constexpr const char* kGuid = "11111111-2222-3333-4444-555555555555";

ST_IOC_MSG message(const std::string& domain, uint64_t time = 0) {
    ST_IOC_MSG msg;
    IocVariant2 process{};
    process.uPid = 0xffffffff;
    process.llCreateTime = 7;
    strcpy(process.szPath, "/bin/sh");
    strncpy(process.szDomain, domain.c_str(), sizeof process.szDomain - 1);
    memcpy(msg.variant, &process, sizeof process);
    msg.strQueryName = domain;
    msg.ullHead[12] = time;
    return msg;
}

uint64_t hash_of(const std::string& domain) {
    return CFifoQueue::CalculateHash(domain.c_str(), 7, "/bin/sh", 0xffffffff);
}

class HotCache : public testing::Test {
protected:
    HotCache() {
        setenv("agentid", "agent-1", 1);
        configure(10, 100);
        zel_test::LogCapture::get().take();
    }
    ~HotCache() override { zel_test::AgentFolder::get().remove(kSettings); }

    void configure(int size, int percent) {
        zel_test::AgentFolder::get().write(kSettings, "[cache]\ncache_size=" + std::to_string(size) +
                                                          "\ndie_num=" + std::to_string(percent) +
                                                          "\ndie_check_time=2\ndie_time_linux=5\n");
        cache.LoadCacheSettings();
    }
    void see(const std::string& domain, uint64_t time = 0, EVENT_ID id = event_id::ioc) {
        const NodePtr node(new ST_QUEQE_NODE);
        node->uEventId = id;
        node->ullCacheKey = hash_of(domain);
        node->pIocMsg = new ST_IOC_MSG(message(domain, time));
        set_guid(*node, kGuid);
        cache.InsertAlert(*node);
    }
    bool repeat(const std::string& domain, uint64_t time = 0, EVENT_ID id = event_id::ioc) {
        return cache.CheckAlertHot(message(domain, time), id);
    }
    // Lets all entries grow old.
    void expire() {
        zel_test::monotonic_ms += 5 * kMinuteMs;
        cache.CheckDieOut();
    }
    std::vector<vorn_retrace::vorn_trace_info> batches() {
        std::vector<vorn_retrace::vorn_trace_info> infos;
        for (const auto& event : bus.events) {
            const auto& record = *static_cast<const ST_PB_EVENT*>(event->GetNativeEvent());
            EXPECT_EQ(event->GetEventId(), 770u);
            EXPECT_EQ(uint32_t{record.uSourceEventId}, 1281u);
            EXPECT_STREQ(record.pszGuid, "");
            EXPECT_TRUE(infos.emplace_back().ParseFromArray(record.pData, static_cast<int>(record.uSize)));
            EXPECT_FALSE(infos.back().has_threat());
            EXPECT_EQ(infos.back().cmd(), vorn_retrace::TRACE_CMD_DUP_ALERT);
        }
        bus.events.clear();
        return infos;
    }

    zel_test::FakeDispatcher bus;
    CFifoQueue cache;
};

TEST_F(HotCache, hashes_the_lower_cased_text_of_process_and_domain) {
    EXPECT_EQ(hash_of("Evil.COM"), zel::CityHash64("domain:evil.com,ptime:7,path:/bin/sh,pid:4294967295"));
    EXPECT_EQ(CFifoQueue::CalculateHash("d", -1, "/BIN", 2), CFifoQueue::CalculateHash("D", -1, "/bin", 2));
    EXPECT_NE(CFifoQueue::CalculateHash("d", 1, "/bin", 2), CFifoQueue::CalculateHash("d", 1, "/bin", 3));
    EXPECT_NE(CFifoQueue::CalculateHash("d", 1, "/bin", 2), CFifoQueue::CalculateHash("d", 2, "/bin", 2));
    EXPECT_EQ(CFifoQueue::CalculateHash(nullptr, 1, "/bin", 2), 0u);
    EXPECT_EQ(CFifoQueue::CalculateHash("d", 1, nullptr, 2), 0u);
    const std::string long_path(2000, 'p');  // the text is cut before the process id
    EXPECT_EQ(CFifoQueue::CalculateHash("d", 1, long_path.c_str(), 2),
              CFifoQueue::CalculateHash("d", 1, long_path.c_str(), 3));
}

TEST_F(HotCache, reports_the_span_of_the_repeats_alone) {
    see("once", 100);
    see("often", 100);
    see("often", 1);  // the older entry stands
    EXPECT_TRUE(repeat("ONCE", 500));
    for (const uint64_t time : {50, 70, 20, 90, 20, 90}) EXPECT_TRUE(repeat("often", time));
    EXPECT_FALSE(repeat("never"));
    expire();
    EXPECT_FALSE(repeat("once"));  // its hash is free again

    const auto sent = batches();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].agent_id(), "agent-1");
    ASSERT_EQ(sent[0].dup_alerts_size(), 2);
    const auto& often = sent[0].dup_alerts(0);  // the newest first
    EXPECT_EQ(often.alert_guid(), kGuid);
    EXPECT_EQ(often.malicious_key(), "often");
    EXPECT_EQ(often.same_alert_key(), hash_of("often"));
    EXPECT_THAT((std::vector<int64_t>{often.dup_count(), often.first_hit_time(), often.recent_hit_time()}),
                ElementsAre(6, 20, 90));
    EXPECT_EQ(sent[0].dup_alerts(1).first_hit_time(), 500);
    EXPECT_EQ(sent[0].dup_alerts(1).recent_hit_time(), 500);
    EXPECT_THAT(zel_test::LogCapture::get().take_up_to(ZEL_LOG_INFO),
                testing::IsSupersetOf({LogLine{ZEL_LOG_INFO, "get agentid agent-1"},
                                       LogLine{ZEL_LOG_INFO, "report data:alert_id:" + std::string(kGuid) +
                                                                 ", count:6, hash:" + std::to_string(hash_of("often")) +
                                                                 ", begin:20, end:90, key:often"}}));
}

TEST_F(HotCache, lets_a_key_of_twenty_bytes_run_on_into_the_guid) {
    struct Row {
        int line;
        std::string name, key;
    };
    const std::string twenty = "aaaaabbbbbcccccddddd";
    const Row rows[] = {
        {__LINE__, "", ""},
        {__LINE__, "aaaaabbbbbcccccdddd", "aaaaabbbbbcccccdddd"},
        {__LINE__, twenty, twenty + kGuid},
        {__LINE__, twenty + "eeeee", twenty + kGuid},
    };
    for (const Row& row : rows) {
        see(row.name);
        EXPECT_TRUE(repeat(row.name)) << "line " << row.line;
        expire();
        EXPECT_EQ(batches().at(0).dup_alerts(0).malicious_key(), row.key) << "line " << row.line;
    }
}

TEST_F(HotCache, sheds_its_oldest_entries_when_it_is_full) {
    struct Row {
        int line, size, percent, left;
    };
    for (const Row& row :
         {Row{__LINE__, 10, 10, 9}, {__LINE__, 10, 100, 0}, {__LINE__, 10, 19, 9}, {__LINE__, 50, 30, 35}}) {
        configure(row.size, row.percent);
        const auto name = [](int i) { return "d" + std::to_string(i); };
        for (int i = 1; i < row.size; ++i) see(name(i));
        EXPECT_THAT(batches(), IsEmpty()) << "line " << row.line;
        see(name(row.size));
        EXPECT_EQ(batches().size(), 1u) << "line " << row.line;
        for (int i = 1; i <= row.size; ++i)
            EXPECT_EQ(repeat(name(i)), i > row.size - row.left) << "line " << row.line << " entry " << i;
        expire();
        batches();
    }
}

TEST_F(HotCache, takes_its_defaults_when_there_is_no_settings_file) {
    zel_test::AgentFolder::get().remove(kSettings);
    cache.LoadCacheSettings();
    for (int i = 0; i < 1000; ++i) see("d" + std::to_string(i));
    EXPECT_THAT(zel_test::LogCapture::get().take(),
                Contains(LogLine{ZEL_LOG_DEBUG, "hot cache queue:700, die out size:300"}));
    batches();
    zel_test::monotonic_ms += 60 * kMinuteMs - 1;
    cache.CheckDieOut();
    EXPECT_THAT(batches(), IsEmpty());
    zel_test::monotonic_ms += 1;
    cache.CheckDieOut();
    EXPECT_EQ(batches().size(), 1u);
}

TEST_F(HotCache, ends_an_entry_at_the_age_limit_in_a_check_that_is_due) {
    see("old");
    zel_test::monotonic_ms += 1;
    see("young");
    zel_test::monotonic_ms += 5 * kMinuteMs - 1;
    cache.CheckDieOut();
    EXPECT_FALSE(repeat("old"));
    EXPECT_TRUE(repeat("young"));
    batches();
    zel_test::monotonic_ms += 2 * kMinuteMs - 1;
    cache.CheckDieOut();
    EXPECT_TRUE(repeat("young"));  // too old, but the next check is not due
    zel_test::monotonic_ms += 1;
    cache.CheckDieOut();
    EXPECT_FALSE(repeat("young"));
    EXPECT_THAT(zel_test::LogCapture::get().take(), Contains(LogLine{ZEL_LOG_DEBUG, "die out size:1, queue size:1"}));
}

TEST_F(HotCache, sends_a_batch_even_if_nothing_was_repeated) {
    unsetenv("agentid");
    see("quiet");
    expire();
    ASSERT_EQ(bus.events.size(), 1u);
    const auto& record = *static_cast<const ST_PB_EVENT*>(bus.events[0]->GetNativeEvent());
    EXPECT_EQ(std::string(record.pData, record.uSize), "\x0a\x01\x30\x28\x04");  // agent id "0" and the command
    EXPECT_THAT(zel_test::LogCapture::get().take_up_to(ZEL_LOG_ERROR),
                ElementsAre(LogLine{ZEL_LOG_ERROR, "get agentid from env error !"}));
}

TEST_F(HotCache, loses_the_batch_when_it_cannot_be_sent) {
    see("lost");
    g_pDispatcher = nullptr;
    expire();
    EXPECT_THAT(
        zel_test::LogCapture::get().take_up_to(ZEL_LOG_ERROR),
        ElementsAre(LogLine{ZEL_LOG_ERROR, "dispatcher is null!"}, LogLine{ZEL_LOG_ERROR, "trc dup invoke failed!"}));
    EXPECT_FALSE(repeat("lost"));
}

TEST_F(HotCache, leaves_other_events_alone_and_is_off_without_settings) {
    see("domain", 0, event_id::ioa_alert);
    EXPECT_FALSE(repeat("domain"));
    see("domain");
    EXPECT_FALSE(repeat("domain", 0, event_id::ioa_alert));
    CFifoQueue off;
    EXPECT_FALSE(off.CheckAlertHot(message("domain"), event_id::ioc));
}

TEST_F(HotCache, takes_every_hit_as_new_without_a_mutex) {
    const zel_test::MutexRefusal refusal;
    std::destroy_at(&cache);
    std::construct_at(&cache);
    cache.LoadCacheSettings();
    see("domain");
    EXPECT_FALSE(repeat("domain"));
    const LogLine line{ZEL_LOG_ERROR, "mutex init failed!"};
    EXPECT_THAT(zel_test::LogCapture::get().take_up_to(ZEL_LOG_ERROR), ElementsAre(line, line));
}

TEST_F(HotCache, reports_no_more_than_was_hit_while_entries_come_and_go) {
    constexpr int kRounds = 3000;
    const auto name = [](int i) { return "d" + std::to_string(i % 25); };
    int64_t hits = 0;
    std::thread bus_thread([&] {
        for (int i = 0; i < kRounds; ++i) hits += repeat(name(i)) ? 1 : 0;
    });
    for (int i = 0; i < kRounds; ++i) see(name(i * 7));
    bus_thread.join();
    expire();
    int64_t reported = 0;
    for (const auto& info : batches())
        for (const auto& entry : info.dup_alerts()) reported += entry.dup_count();
    EXPECT_LE(reported, hits);
}

}  // namespace
