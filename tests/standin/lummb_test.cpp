// The bus stand-in, opened as a plug-in opens it: what it delivers, counts and drops.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <semaphore>
#include <thread>

#include "lummb/lummb_host.h"

using MbFrame::IEvent;

template <class F>
static F from_bus(const char* name) {
    return reinterpret_cast<F>(dlsym(dlopen(ZEL_LUMMB, RTLD_NOW | RTLD_LOCAL), name));
}
static const auto publish = from_bus<lummb_publish_t>("lummb_publish");

// Waits until the bus is idle.
static lummb_counts counts() {
    lummb_counts now;
    do from_bus<lummb_get_counts_t>("lummb_get_counts")(&now);
    while (now.waiting + now.sending > 0);
    return now;
}

// A plug-in that is attached as long as a test runs.
struct Bus : testing::Test, MbFrame::IPlugin {
    Bus() {
        auto** const out = reinterpret_cast<void**>(&frame);
        from_bus<MbFrame::DllGetClassObject_t>("DllGetClassObject")(&kNoClassId, &kIidRtmFrame, out);
        EXPECT_EQ(frame->Advise(this, 1), 0);
    }
    ~Bus() override {
        frame->Unadvise(id);
        frame->Release();
        EXPECT_EQ(counts().frames + counts().alive, 0u);
    }
    int32_t QueryInterface(const InterfaceId*, void**) override { return 0; }
    int32_t GetPluginId(unsigned char* out) override {
        memcpy(out, id, 16);
        return 0;
    }
    int32_t GetPluginKind(uint32_t*) override { return 0; }
    int32_t OnAdvised(MbFrame::IPluginSetting* setting, MbFrame::IDispatch* to) override {
        constexpr MbFrame::EventTableEntry kTable[] = {{1536, 1}, {1538, 1}, {1281, 1}, {1538, 1}};
        dispatcher = to;
        return setting->SetEventTable(kTable, 4);
    }
    int32_t OnNotify(uint32_t) override { return 0; }
    int32_t OnEvent(IEvent* event, void*) override {
        last = event;
        on_event(event);
        return 0;
    }
    int32_t OnQuery(void*) override { return 0; }

    unsigned char id[17] = "plug-in of tests";
    MbFrame::IRtmFrame* frame = nullptr;
    MbFrame::IDispatch* dispatcher = nullptr;
    IEvent* last = nullptr;
    std::function<void(IEvent*)> on_event = [](IEvent*) {};
    lummb_counts before = counts();
};

TEST_F(Bus, DeliversOnceAndCountsEveryReference) {
    EXPECT_LT(frame->Advise(this, 1), 0) << "attached already";
    for (const size_t late : {0u, 1u, 2u}) {
        const lummb_counts earlier = counts();
        publish(1538, "{}", 2);
        EXPECT_EQ(counts().alive, 1u);
        for (size_t i = 0; i <= late; ++i) last->Release();
        EXPECT_EQ(counts().delivered, earlier.delivered + 1);
        EXPECT_EQ(counts().alive, 0u);
        EXPECT_EQ(counts().late, earlier.late + late);
    }
}

TEST_F(Bus, UnadviseWaitsForARunningCallAndDropsWhatWaits) {
    std::binary_semaphore entered{0}, gate{0};
    bool ended = false;
    on_event = [&](IEvent* event) {
        entered.release();
        gate.acquire();
        event->Release();
        ended = true;
    };
    from_bus<lummb_set_inbox_limit_t>("lummb_set_inbox_limit")(2);
    for (const int32_t answer : {LUMMB_OK, LUMMB_OK, LUMMB_FULL}) EXPECT_EQ(publish(1538, "x", 1), answer);
    entered.acquire();
    std::thread stopper([&] {
        EXPECT_EQ(frame->Unadvise(id), 0);
        EXPECT_TRUE(ended);
    });
    while (publish(1538, "x", 1) != LUMMB_NOT_SUBSCRIBED) std::this_thread::yield();
    gate.release();
    stopper.join();
    EXPECT_EQ(counts().delivered, before.delivered + 1);
    EXPECT_EQ(counts().discarded, before.discarded + 1);
}

TEST_F(Bus, ADnsEventOwnsItsRecordAndSharesOneCount) {
    const struct {
        uint32_t kind;
        size_t first_text, last_text;  // of the variant record, in pointers
    } rows[] = {{.kind = 1, .first_text = 2, .last_text = 11},
                {.kind = 2, .first_text = 2, .last_text = 11},
                {.kind = 3, .first_text = 0, .last_text = 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.kind);
        char text[] = "text";
        const char* variant[14] = {};
        variant[row.first_text] = variant[row.last_text] = text;
        const ST_DNS_NATIVE record{
            .uKind = row.kind, .ullHead = {}, .uHead = {}, .pszText = {text}, .pVariant = variant};
        MbFrame::IDnsEvent* dns = nullptr;
        on_event = [&](IEvent* event) { event->QueryInterface(&kIidDnsEvent, reinterpret_cast<void**>(&dns)); };
        from_bus<lummb_publish_dns_t>("lummb_publish_dns")(&record, text);
        text[0] = '\0';
        EXPECT_EQ(counts().alive, 1u);
        const auto* copy = static_cast<const ST_DNS_NATIVE*>(last->GetNativeEvent());
        const auto* got = static_cast<const char* const*>(copy->pVariant);
        for (const char* copied : {dns->GetQueryName(), *copy->pszText, got[row.first_text], got[row.last_text]})
            EXPECT_STREQ(copied, "text");
        EXPECT_EQ(dns->Release() + last->Release(), 1);
    }
}

TEST_F(Bus, SendsToEverySubscriberEvenAfterUnadvise) {
    int calls = 0;
    const lummb_sink_t sink = [](void* to, IEvent*) { ++*static_cast<int*>(to); };
    uint64_t tokens[3] = {};
    for (uint64_t& token : tokens) token = from_bus<lummb_subscribe_t>("lummb_subscribe")(1538, sink, &calls);
    on_event = [&](IEvent* event) {
        frame->Unadvise(id);
        dispatcher->Invoke(event);
        event->Release();
    };
    publish(1538, "x", 1);
    counts();
    for (const uint64_t token : tokens) from_bus<lummb_unsubscribe_t>("lummb_unsubscribe")(token);
    EXPECT_EQ(calls, 3);
}
