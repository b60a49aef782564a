// The plug-in object as the bus calls it: events that it lets go with a line, and what it answers. Before any start.
#include "plugin/zelreshdl_engine.h"

#include <gtest/gtest.h>

#include "common/module_state.h"
#include "pipeline/reshdlwork.h"
#include "platform/event_ids.h"
#include "support/log_capture.h"
#include "support/refusals.h"

namespace {

std::string logged() { return zel_test::LogCapture::get().take_text(ZEL_LOG_WARN); }

// The DNS interface of an event.
struct FakeDns : MbFrame::IDnsEvent {
    int32_t QueryInterface(const InterfaceId*, void**) override { return -1; }
    void reserved6() override {}
    void reserved7() override {}
    void reserved8() override {}
    const char* GetQueryName() override { return nullptr; }
};

// An event with that id and no record. It has the second interface if `dns` is given; `answer` is that of the question
// for it.
struct FakeEvent : MbFrame::IEvent {
    explicit FakeEvent(uint32_t event_id) : id(event_id) {}
    int32_t QueryInterface(const InterfaceId*, void** out) override {
        *out = dns;
        if (dns != nullptr) dns->AddRef();
        return answer;
    }
    uint32_t GetEventId() override { return id; }
    void* GetNativeEvent() override { return nullptr; }
    int32_t GetPublishedState() override { return 0; }

    uint32_t id;
    FakeDns* dns = nullptr;
    int32_t answer = 0;
};

struct Row {
    const char* name;
    uint32_t id;
    bool has_dns;
    int32_t answer;
    const char* lines;
};
constexpr Row kRows[] = {
    {"NoRecord", event_id::ioa_alert, false, 0, "E Evt->GetNativeEvent error\nE GetNativeEventData failed!\n"},
    {"UnknownId", 1535, false, 0, "W unknown event id:1535\nE GetNativeEventData failed!\n"},
    {"NoDnsInterface", event_id::ioc, false, 0,
     "E Evt->QueryInterface IDnsEvent error, 0x00000000\nE GetNativeEventData failed!\n"},
    {"DnsInterfaceRefused", event_id::ioc, false, -1,
     "E Evt->QueryInterface IDnsEvent error, 0xffffffff\nE GetNativeEventData failed!\n"},
    {"NoDnsRecord", event_id::ioc, true, 0, "E Evt->GetNativeEvent error\nE GetNativeEventData failed!\n"},
};

class LetGo : public testing::TestWithParam<Row> {};

TEST_P(LetGo, WithALineAndItsReferences) {
    CResultProcEngine engine;
    FakeEvent event(GetParam().id);
    FakeDns dns;
    event.answer = GetParam().answer;
    if (GetParam().has_dns) event.dns = &dns;
    event.AddRef();
    EXPECT_EQ(event.AddRef(), 2);
    logged();
    EXPECT_EQ(engine.OnEvent(&event, nullptr), 0);
    EXPECT_EQ(logged(), GetParam().lines);
    EXPECT_EQ(event.Release(), 0) << "one reference was the plug-in's";
    EXPECT_EQ(dns.AddRef(), 1) << "the interface was given back";
}
INSTANTIATE_TEST_SUITE_P(Table, LetGo, testing::ValuesIn(kRows), [](const auto& row) { return row.param.name; });

TEST(Engine, AnswersWithoutEffectAndTakesItsMutexAlong) {
    {
        CResultProcEngine engine;
        EXPECT_TRUE(g_hWorkMutex.valid());
        logged();
        EXPECT_EQ(engine.OnEvent(nullptr, nullptr), 0);
        EXPECT_EQ(logged(), "E Evt is null, OnEvent do not handle\n");
        void* out = &engine;
        EXPECT_EQ(engine.QueryInterface(&kIidUnknown, &out), 0);
        EXPECT_EQ(out, &engine);
        EXPECT_EQ(engine.AddRef() + engine.Release() + engine.OnNotify(1) + engine.OnQuery(nullptr), 0);
        engine.Detach();  // no bus was loaded
    }
    EXPECT_FALSE(g_hWorkMutex.valid());
}

TEST(Engine, WithoutAMutexEndsTheProcess) {
    EXPECT_EXIT(
        {
            zel_test::refused_mutex = 1;
            const CResultProcEngine engine;
        },
        testing::ExitedWithCode(0), "");
}

// A start needs the mutex of the object and the bus; each is missing here in turn.
TEST(Pipeline, DoesNotStartBeforeTheObjectAndTheBus) {
    for (const bool made : {false, true}) {
        const std::unique_ptr<CResultProcEngine> engine(made ? new CResultProcEngine : nullptr);
        logged();
        EXPECT_FALSE(g_reshdlWork.Init());
        EXPECT_EQ(logged(), "W The plug-in is not initialized\n") << made;
    }
}

}  // namespace
