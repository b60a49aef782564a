// What the hot cache knows, keeps and sheds. The batch that is made of what left it is for the end-to-end tests.
#include "suppress/fifoqueue.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/log_capture.h"
#include "support/refusals.h"
#include "support/settings_folder.h"
#include "suppress/cityhash.h"

namespace {

using ResHdlCache::CFifoQueue;

constexpr const char* kSettings = "zelreshdl.ini";
constexpr uint64_t kMinuteMs = 60'000;
constexpr size_t kLongestKeyText = 1039;

std::string name(int number) { return "d" + std::to_string(number); }

ST_IOC_MSG message(const std::string& domain, uint64_t alert_time = 100) {
    IocVariant2 process{};
    strcpy(process.szDomain, domain.c_str());
    ST_IOC_MSG msg;
    memcpy(msg.variant, &process, sizeof process);
    msg.ullHead[12] = alert_time;
    msg.ullCacheKey = CFifoQueue::CalculateHash(process.szDomain, 0, "", 0);
    return msg;
}

TEST(HotCacheKey, IsTheHashOfALowerCaseTextOfLimitedLength) {
    const auto key = [](const char* domain, const std::string& path, uint64_t pid = 5) {
        return CFifoQueue::CalculateHash(domain, -7, path.c_str(), pid);
    };
    EXPECT_EQ(key("Bad.EXAMPLE", "/Bin/SH"), zel::CityHash64("domain:bad.example,ptime:-7,path:/bin/sh,pid:5"));
    EXPECT_EQ(key("", "", ~uint64_t{0}), zel::CityHash64("domain:,ptime:-7,path:,pid:18446744073709551615"));
    EXPECT_EQ(CFifoQueue::CalculateHash(nullptr, 0, "", 0), 0u);
    EXPECT_EQ(CFifoQueue::CalculateHash("", 0, nullptr, 0), 0u);

    const auto text = [](const std::string& path) { return "domain:d,ptime:-7,path:" + path + ",pid:5"; };
    const std::string longest(kLongestKeyText - text("").size(), '/'), too_long = longest + "/";
    EXPECT_EQ(key("d", longest), zel::CityHash64(text(longest)));
    EXPECT_EQ(key("d", too_long), zel::CityHash64(text(too_long).substr(0, kLongestKeyText)));
}

class HotCache : public testing::Test {
protected:
    HotCache() { configure(10, 100); }
    void configure(int size, int percent) {
        const std::string numbers = "cache_size=" + std::to_string(size) + "\ndie_num=" + std::to_string(percent);
        zel_test::SettingsFolder::get().write(kSettings, "[cache]\ndie_check_time=2\ndie_time_linux=5\n" + numbers);
        cache.LoadCacheSettings();
    }
    void see(const std::string& domain, EVENT_ID id = event_id::ioc) {
        const NodePtr node(new ST_QUEQE_NODE);
        node->uEventId = id;
        node->pIocMsg = std::make_unique<ST_IOC_MSG>(message(domain));
        node->ullCacheKey = node->pIocMsg->ullCacheKey;
        cache.InsertAlert(*node, now);
    }
    bool knows(const std::string& domain, EVENT_ID id = event_id::ioc) {
        return cache.CheckAlertHot(message(domain), id);
    }
    void advance(uint64_t ms) {
        now += ms;
        cache.CheckDieOut(now);
    }

    uint64_t now = 1'000'000;
    CFifoQueue cache{now};
};

TEST_F(HotCache, ShedsItsOldestEntriesWhenItIsFull) {
    for (const auto& [size, percent, kept] : {std::tuple{10, 10, 9}, {10, 100, 0}, {11, 30, 8}}) {
        configure(size, percent);
        for (int number = 1; number < size; ++number) see(name(number));
        for (int number = 1; number < size; ++number) EXPECT_TRUE(knows(name(number))) << number;
        see(name(size));
        for (int number = 1; number <= size; ++number) EXPECT_EQ(knows(name(number)), number > size - kept) << number;
        advance(5 * kMinuteMs);
    }
}

TEST_F(HotCache, TakesAKnownKeyOnceAndOtherEventsNever) {
    for (int i = 0; i < 10; ++i) see("known");  // ten entries would empty the cache
    EXPECT_TRUE(knows("known"));
    EXPECT_FALSE(knows("known", event_id::kov));
    see("other", event_id::kov);
    EXPECT_FALSE(knows("other"));
}

TEST_F(HotCache, EndsAnEntryAtTheAgeLimitInACheckThatIsDue) {
    see("old");
    advance(1);
    see("young");
    advance(5 * kMinuteMs - 1);
    EXPECT_FALSE(knows("old"));
    EXPECT_TRUE(knows("young"));
    advance(2 * kMinuteMs - 1);
    EXPECT_TRUE(knows("young"));  // too old, but the next check is not due
    advance(1);
    EXPECT_FALSE(knows("young"));
    see("old");
    EXPECT_TRUE(knows("old"));  // its key was free again
}

TEST_F(HotCache, SpansTheTimesOfTheRepeatsInWhateverOrderTheyCome) {
    see("d");
    for (const uint64_t alert_time : {7u, 5u, 9u, 6u}) cache.CheckAlertHot(message("d", alert_time), event_id::ioc);
    const CFifoQueue::Entries ended = cache.CheckDieOut(now + 5 * kMinuteMs);
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(std::tuple(ended.front().begin, ended.front().end, ended.front().count), std::tuple(5u, 9u, 4u));
}

TEST_F(HotCache, TakesEveryHitAsNewWithoutSettingsOrMutex) {
    zel_test::refused_mutex = -1;
    std::destroy_at(&cache);
    std::construct_at(&cache, now);
    zel_test::LogCapture::get().take();
    see("domain");
    EXPECT_FALSE(knows("domain"));
    EXPECT_EQ(zel_test::LogCapture::get().take_text(), "");
    cache.LoadCacheSettings();
    see("domain");
    EXPECT_FALSE(knows("domain"));
    EXPECT_EQ(zel_test::LogCapture::get().take_text(ZEL_LOG_ERROR), "E mutex init failed!\nE mutex init failed!\n");
    zel_test::refused_mutex = 0;
}

}  // namespace
