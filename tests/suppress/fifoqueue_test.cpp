#include "suppress/fifoqueue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "host/lib/clocks.h"
#include "retrace.pb.h"
#include "support/agent_folder.h"
#include "support/fake_dispatcher.h"
#include "support/log_capture.h"
#include "support/mutex_refusal.h"
#include "suppress/cityhash.h"

namespace {

using ResHdlCache::CFifoQueue;

constexpr const char* kSettings = "../config/zelreshdl.ini";
constexpr uint64_t kMinuteMs = 60'000;
constexpr const char* kGuid = "11111111-2222-3333-4444-555555555555";

uint64_t hash_of(const std::string& domain) { return CFifoQueue::CalculateHash(domain.c_str(), 7, "/bin/sh", ~0u); }
std::string name(int i) { return "d" + std::to_string(i); }
std::string logged(int32_t level) { return zel_test::LogCapture::get().take_text(level); }

ST_IOC_MSG message(const std::string& domain, uint64_t time) {
    IocVariant2 process{};
    process.uPid = ~0u;
    process.llCreateTime = 7;
    strcpy(process.szPath, "/bin/sh");
    strcpy(process.szDomain, domain.c_str());
    ST_IOC_MSG msg;
    memcpy(msg.variant, &process, sizeof process);
    msg.strQueryName = domain;
    msg.ullHead[12] = time;
    return msg;
}

// Before the first cache, which looks at the clock when it is made.
[[maybe_unused]] const bool g_clock_stands = [] {
    zelhost::clocks::stand_still(zelhost::clocks::monotonic, std::chrono::seconds(1000));
    return true;
}();

class HotCache : public testing::Test {
protected:
    HotCache() {
        setenv("agentid", "agent-1", 1);
        configure(10, 100);
        logged(ZEL_LOG_DEBUG);
    }
    void configure(int size, int percent) {
        const std::string numbers = "cache_size=" + std::to_string(size) + "\ndie_num=" + std::to_string(percent);
        zel_test::AgentFolder::get().write(kSettings, "[cache]\ndie_check_time=2\ndie_time_linux=5\n" + numbers);
        cache.LoadCacheSettings();
    }
    void see(const std::string& domain, uint64_t time = 0) {
        const NodePtr node(new ST_QUEQE_NODE);
        node->uEventId = event_id::ioc;
        node->ullCacheKey = hash_of(domain);
        node->pIocMsg = new ST_IOC_MSG(message(domain, time));
        set_guid(*node, kGuid);
        cache.InsertAlert(*node);
    }
    bool repeat(const std::string& domain, uint64_t time = 0) {
        return cache.CheckAlertHot(message(domain, time), event_id::ioc);
    }
    void advance(uint64_t ms) {
        zelhost::clocks::advance(std::chrono::milliseconds(ms));
        cache.CheckDieOut();
    }
    // The entries of the batches since the last call.
    std::vector<vorn_retrace::dup_alert> reported() {
        std::vector<vorn_retrace::dup_alert> entries;
        for (const auto& event : std::exchange(bus.events, {})) {
            const auto& record = *static_cast<const ST_PB_EVENT*>(event->GetNativeEvent());
            EXPECT_EQ(event->GetEventId() + record.uSourceEventId, 770u + 1281u);
            vorn_retrace::vorn_trace_info info;
            EXPECT_TRUE(info.ParseFromArray(record.pData, static_cast<int>(record.uSize)));
            entries.insert(entries.end(), info.dup_alerts().begin(), info.dup_alerts().end());
        }
        return entries;
    }

    zel_test::FakeDispatcher bus;
    CFifoQueue cache;
};

TEST_F(HotCache, ShedsItsOldestEntriesWhenItIsFull) {
    const struct {
        int line, size, percent, left;
    } rows[] = {{__LINE__, 10, 10, 9}, {__LINE__, 10, 100, 0}, {__LINE__, 11, 30, 8}};
    for (const auto& row : rows) {
        configure(row.size, row.percent);
        for (int i = 1; i < row.size; ++i) see(name(i));
        EXPECT_TRUE(bus.events.empty()) << "line " << row.line;
        see(name(row.size));
        EXPECT_EQ(bus.events.size(), 1u) << "line " << row.line;
        for (int i = 1; i <= row.size; ++i) EXPECT_EQ(repeat(name(i)), i > row.size - row.left) << "line " << row.line;
        advance(5 * kMinuteMs);
        reported();
    }
}

TEST_F(HotCache, EndsAnEntryAtTheAgeLimitInACheckThatIsDue) {
    see("old");
    advance(1);
    see("young");
    advance(5 * kMinuteMs - 1);
    EXPECT_TRUE(!repeat("old") && repeat("young"));
    advance(2 * kMinuteMs - 1);
    EXPECT_TRUE(repeat("young"));  // too old, but the next check is not due
    advance(1);
    EXPECT_FALSE(repeat("young"));
}

TEST_F(HotCache, SendsAnEmptyBatchAndLosesItWithoutABus) {
    unsetenv("agentid");
    see("quiet");
    advance(5 * kMinuteMs);
    const auto& record = *static_cast<const ST_PB_EVENT*>(bus.events.at(0)->GetNativeEvent());
    EXPECT_EQ(std::string(record.pData, record.uSize), "\x0a\x01\x30\x28\x04");  // agent id "0" and the command
    EXPECT_STREQ(record.pszGuid, "");
    see("lost");
    g_pDispatcher = nullptr;
    advance(5 * kMinuteMs);
    EXPECT_EQ(logged(ZEL_LOG_ERROR),
              "E get agentid from env error !\nE get agentid from env error !\n"
              "E dispatcher is null!\nE trc dup invoke failed!\n");
}

TEST_F(HotCache, TakesEveryHitAsNewWithoutSettingsOrMutex) {
    const zel_test::MutexRefusal refusal;
    std::destroy_at(&cache);
    std::construct_at(&cache);
    see("domain");
    EXPECT_FALSE(repeat("domain"));
    cache.LoadCacheSettings();
    see("domain");
    EXPECT_FALSE(repeat("domain"));
    EXPECT_EQ(logged(ZEL_LOG_ERROR), "E mutex init failed!\nE mutex init failed!\n");
}

TEST_F(HotCache, ReportsNoMoreThanWasHitWhileEntriesComeAndGo) {
    int64_t balance = 0;
    std::thread bus_thread([&] {
        for (int i = 0; i < 3000; ++i) balance += repeat(name(i % 25)) ? 1 : 0;
    });
    for (int i = 0; i < 3000; ++i) see(name(i * 7 % 25));
    bus_thread.join();
    advance(5 * kMinuteMs);
    for (const auto& entry : reported()) balance -= entry.dup_count();
    EXPECT_GE(balance, 0);
}

}  // namespace
