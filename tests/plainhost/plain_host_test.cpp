// The plug-in in a program without any protobuf: it works there, and the program may exit without stopping it. The
// end-to-end tests have it beside the full runtime.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <semaphore>
#include <string>

#include "e2e/documents.h"
#include "lummb/lummb_host.h"

namespace {

using Export = int (*)();

// From a library of the staged agent folder; the plug-in opens the bus under the same path.
template <class F>
F from(const char* library, const char* name) {
    void* const handle = dlopen((std::string(AGENT_DIR "/reshdl/") + library).c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(handle, nullptr) << dlerror();
    return reinterpret_cast<F>(dlsym(handle, name));
}

// Tells of the events with an id that the plug-in sends, as long as it lives.
class Listener {
public:
    explicit Listener(uint32_t id) {
        const lummb_sink_t sink = [](void* context, MbFrame::IEvent* event) {
            EXPECT_GT(static_cast<const ST_PB_EVENT*>(event->GetNativeEvent())->uSize, 10u);
            static_cast<Listener*>(context)->heard_.release();
        };
        token_ = from<lummb_subscribe_t>("lib/liblummb.so", "lummb_subscribe")(id, sink, this);
    }
    ~Listener() { from<lummb_unsubscribe_t>("lib/liblummb.so", "lummb_unsubscribe")(token_); }
    bool hears() { return heard_.try_acquire_for(std::chrono::seconds(10)); }

private:
    std::counting_semaphore<> heard_{0};
    uint64_t token_;
};

int32_t publish(uint32_t id, const std::string& text) {
    return from<lummb_publish_t>("lib/liblummb.so", "lummb_publish")(id, text.data(), text.size());
}

TEST(PlainHost, GetsAFirstReportOutOfThePlugIn) {
    ASSERT_EQ(from<Export>("bin/libzelreshdl.so", "plugin_init")(), 0);
    Listener reports(769);
    EXPECT_EQ(publish(1541, "{}"), LUMMB_OK);
    EXPECT_TRUE(reports.hears());
    EXPECT_EQ(from<Export>("bin/libzelreshdl.so", "plugin_uninit")(), 0);
}

bool g_keeps_events = false;

// Leaves with alerts in hand in both workers and more of them in the queues.
[[noreturn]] void exit_without_a_stop() {
    g_keeps_events = true;
    if (from<Export>("bin/libzelreshdl.so", "plugin_init")() != 0) exit(1);
    auto& traces = *new Listener(770);  // hears to the end
    for (int number = 1; number <= 90; ++number) publish(1536, e2e::Alert{.number = number}.text());
    exit(traces.hears() ? 7 : 2);
}

TEST(PlainHostDeathTest, MayExitWithoutAStop) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (int round = 0; round < 20; ++round)
        EXPECT_EXIT(exit_without_a_stop(), testing::ExitedWithCode(7), "") << "round " << round;
}

}  // namespace

// Asked by the leak checker. Events that wait on the bus at the exit are reached through packed records, where it does
// not look.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() { return g_keeps_events ? 1 : 0; }
