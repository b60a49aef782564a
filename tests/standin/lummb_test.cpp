// The bus stand-in, opened as a plug-in opens it: what a stop meets there.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <semaphore>
#include <thread>

#include "lummb/lummb_host.h"

namespace {

template <class F>
F from_bus(const char* name) {
    return reinterpret_cast<F>(dlsym(dlopen(ZEL_LUMMB, RTLD_NOW | RTLD_LOCAL), name));
}

// Takes events of one kind and holds the first of them until the gate opens.
struct Plugin : MbFrame::IPlugin {
    int32_t QueryInterface(const InterfaceId*, void**) override { return 0; }
    int32_t GetPluginId(unsigned char* out) override {
        memcpy(out, id, 16);
        return 0;
    }
    int32_t GetPluginKind(uint32_t*) override { return 0; }
    int32_t OnAdvised(MbFrame::IPluginSetting* setting, MbFrame::IDispatch*) override {
        constexpr MbFrame::EventTableEntry kTable = {1538, 1};
        return setting->SetEventTable(&kTable, 1);
    }
    int32_t OnNotify(uint32_t) override { return 0; }
    int32_t OnEvent(MbFrame::IEvent* event, void*) override {
        entered.release();
        gate.acquire();
        event->Release();
        ended = true;
        return 0;
    }
    int32_t OnQuery(void*) override { return 0; }

    unsigned char id[17] = "plug-in of tests";
    std::binary_semaphore entered{0}, gate{0};
    bool ended = false;
};

TEST(Bus, UnadviseWaitsForARunningCallAndDropsWhatWaits) {
    const auto publish = from_bus<lummb_publish_t>("lummb_publish");
    Plugin plugin;
    MbFrame::IRtmFrame* frame = nullptr;
    auto** const out = reinterpret_cast<void**>(&frame);
    from_bus<MbFrame::DllGetClassObject_t>("DllGetClassObject")(&kNoClassId, &kIidRtmFrame, out);
    EXPECT_EQ(frame->Advise(&plugin, 1), 0);
    EXPECT_LT(frame->Advise(&plugin, 1), 0) << "attached already";
    from_bus<lummb_set_inbox_limit_t>("lummb_set_inbox_limit")(2);
    for (const int32_t answer : {LUMMB_OK, LUMMB_OK, LUMMB_FULL}) EXPECT_EQ(publish(1538, "x", 1), answer);
    plugin.entered.acquire();
    std::thread stopper([&] {
        EXPECT_EQ(frame->Unadvise(plugin.id), 0);
        EXPECT_TRUE(plugin.ended);
        frame->Release();
    });
    while (publish(1538, "x", 1) != LUMMB_NOT_SUBSCRIBED) std::this_thread::yield();
    plugin.gate.release();
    stopper.join();
    lummb_counts counts;
    do from_bus<lummb_get_counts_t>("lummb_get_counts")(&counts);
    while (counts.waiting + counts.sending > 0);
    EXPECT_EQ(counts.delivered, 1u);
    EXPECT_EQ(counts.discarded, 1u);
    EXPECT_EQ(counts.frames + counts.alive, 0u);
}

}  // namespace
