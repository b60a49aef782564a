// The plug-in in a program without any protobuf. The end-to-end tests have it beside the full runtime.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <semaphore>
#include <string>

#include "lummb/lummb_host.h"

namespace {

// From a library of the staged agent folder; the plug-in opens the bus under the same path.
template <class F>
F from(const char* library, const char* name) {
    void* const handle = dlopen((std::string(AGENT_DIR "/reshdl/") + library).c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(handle, nullptr) << dlerror();
    return reinterpret_cast<F>(dlsym(handle, name));
}

TEST(PlainHost, GetsAFirstReportOutOfThePlugIn) {
    using Export = int (*)();
    ASSERT_EQ(from<Export>("bin/libzelreshdl.so", "plugin_init")(), 0);
    std::binary_semaphore reported(0);
    const lummb_sink_t sink = [](void* context, MbFrame::IEvent* event) {
        EXPECT_GT(static_cast<const ST_PB_EVENT*>(event->GetNativeEvent())->uSize, 10u);
        static_cast<std::binary_semaphore*>(context)->release();
    };
    const uint64_t token = from<lummb_subscribe_t>("lib/liblummb.so", "lummb_subscribe")(769, sink, &reported);
    EXPECT_EQ(from<lummb_publish_t>("lib/liblummb.so", "lummb_publish")(1541, "{}", 2), LUMMB_OK);
    EXPECT_TRUE(reported.try_acquire_for(std::chrono::seconds(10)));
    from<lummb_unsubscribe_t>("lib/liblummb.so", "lummb_unsubscribe")(token);
    EXPECT_EQ(from<Export>("bin/libzelreshdl.so", "plugin_uninit")(), 0);
}

}  // namespace
