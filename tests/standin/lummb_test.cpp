#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <semaphore>
#include <thread>

#include "lummb/lummb_host.h"

namespace {

using MbFrame::IEvent;
using Row = std::array<size_t, 5>;

template <class F>
F from_bus(const char* name) {
    return reinterpret_cast<F>(dlsym(dlopen(ZEL_LUMMB, RTLD_NOW | RTLD_LOCAL), name));
}
const auto publish = from_bus<lummb_publish_t>("lummb_publish");

lummb_counts counts() {
    lummb_counts now{};
    from_bus<lummb_get_counts_t>("lummb_get_counts")(&now);
    return now;
}
lummb_counts idle_counts() {
    while (counts().waiting + counts().sending > 0) std::this_thread::yield();
    return counts();
}

// Attached for the length of a test.
struct Bus : testing::Test, MbFrame::IPlugin {
    Bus() {
        void* out = nullptr;
        from_bus<MbFrame::DllGetClassObject_t>("DllGetClassObject")(&kNoClassId, &kIidRtmFrame, &out);
        frame = static_cast<MbFrame::IRtmFrame*>(out);
        EXPECT_EQ(frame->Advise(this, 1), 0);
    }
    ~Bus() override {
        frame->Unadvise(id);
        frame->Release();
        EXPECT_EQ(counts().frames + counts().alive, 0u);
    }
    int32_t QueryInterface(const InterfaceId*, void**) override { return 0; }
    int32_t GetPluginId(unsigned char* out) override { return memcpy(out, id, 16), 0; }
    int32_t GetPluginKind(uint32_t*) override { return 0; }
    int32_t OnAdvised(MbFrame::IPluginSetting* setting, MbFrame::IDispatch* to) override {
        constexpr MbFrame::EventTableEntry kTable[] = {{1536, 1}, {1538, 1}, {1281, 1}, {1538, 1}};
        dispatcher = to;
        return setting->SetEventTable(kTable, 4);
    }
    int32_t OnNotify(uint32_t) override { return 0; }
    int32_t OnEvent(IEvent* event, void*) override { return on_event(event), 0; }
    int32_t OnQuery(void*) override { return 0; }

    unsigned char id[17] = "plug-in of tests";
    MbFrame::IRtmFrame* frame = nullptr;
    MbFrame::IDispatch* dispatcher = nullptr;
    std::function<void(IEvent*)> on_event;
    lummb_counts before = counts();
};

TEST_F(Bus, delivers_subscribed_ids_once_and_counts_every_reference) {
    EXPECT_LT(frame->Advise(nullptr, 1), 0);
    EXPECT_LT(frame->Advise(this, 1), 0) << "attached already";
    for (const Row& row : {Row{__LINE__, 1536, 1, 0, 0}, Row{__LINE__, 1538, 2, 0, 1}, Row{__LINE__, 1538, 0, 1, 0}}) {
        const auto& [line, event_id, releases, alive, late] = row;
        const lummb_counts start = counts();
        IEvent* kept = nullptr;
        on_event = [&, left = releases](IEvent* event) mutable {
            for (kept = event; left > 0; --left) event->Release();
        };
        EXPECT_EQ(publish(static_cast<uint32_t>(event_id), "{}", 2), LUMMB_OK);
        const lummb_counts end = idle_counts();
        EXPECT_EQ(row, (Row{line, event_id, releases, end.alive, end.late - start.late}));
        EXPECT_EQ(end.delivered - start.delivered, 1u) << line;
        if (alive != 0) kept->Release();
    }
}

TEST_F(Bus, unadvise_waits_for_a_running_call_and_drops_what_waits) {
    std::binary_semaphore gate{0};
    on_event = [&](IEvent* event) { gate.acquire(), event->Release(); };
    from_bus<lummb_set_inbox_limit_t>("lummb_set_inbox_limit")(2);
    for (const int32_t answer : {LUMMB_OK, LUMMB_OK, LUMMB_FULL}) EXPECT_EQ(publish(1538, "x", 1), answer);
    std::atomic<bool> returned = false;
    std::thread stopper([&] { frame->Unadvise(id), returned = true; });
    while (publish(1538, "x", 1) != LUMMB_NOT_SUBSCRIBED) std::this_thread::yield();
    EXPECT_FALSE(returned);
    gate.release();
    stopper.join();
    EXPECT_EQ(idle_counts().discarded + counts().delivered - before.discarded - before.delivered, 2u);
}

TEST_F(Bus, a_dns_event_owns_its_record_and_shares_one_count) {
    for (const auto& [line, kind, first, last, size] :
         {Row{__LINE__, 1, 2, 11}, Row{__LINE__, 2, 2, 11}, Row{__LINE__, 3, 0, 2}}) {
        char text[] = "text";
        const char* variant[14] = {};
        variant[first] = variant[last] = text;
        const ST_DNS_NATIVE record{static_cast<uint32_t>(kind), {}, {}, {text}, variant};
        IEvent* event = nullptr;
        void* dns = nullptr;
        on_event = [&](IEvent* given) { event = given; };
        from_bus<lummb_publish_dns_t>("lummb_publish_dns")(&record, text);
        text[0] = '\0';
        idle_counts();
        EXPECT_EQ(event->QueryInterface(&kIidDnsEvent, &dns), 0);
        event->Release();
        const auto* copy = static_cast<const ST_DNS_NATIVE*>(event->GetNativeEvent());
        const auto* texts = static_cast<const char* const*>(copy->pVariant);
        auto* const face = static_cast<MbFrame::IDnsEvent*>(dns);
        for (const char* kept : {face->GetQueryName(), copy->pszText[0], texts[first], texts[last]})
            EXPECT_STREQ(kept, "text") << line;
        face->Release();
    }
}

TEST_F(Bus, sends_to_every_subscriber_even_after_unadvise) {
    const auto subscribe = from_bus<lummb_subscribe_t>("lummb_subscribe");
    const auto unsubscribe = from_bus<lummb_unsubscribe_t>("lummb_unsubscribe");
    std::string calls;
    const lummb_sink_t sink = [](void* to, IEvent* event) {
        *static_cast<std::string*>(to) += std::to_string(event->GetEventId()) + " ";
    };
    const uint64_t first = subscribe(1538, sink, &calls), second = subscribe(1538, sink, &calls);
    IEvent* kept = nullptr;
    on_event = [&](IEvent* event) { dispatcher->Invoke(kept = event); };
    publish(1538, "x", 1);
    idle_counts();
    unsubscribe(first);
    frame->Unadvise(id);
    dispatcher->Invoke(kept);
    kept->Release();
    idle_counts();
    unsubscribe(second);
    EXPECT_EQ(calls, "1538 1538 1538 ");
}

}  // namespace
