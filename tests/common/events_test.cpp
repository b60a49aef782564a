// Outgoing events: their interface, their record, and what their last reference frees. What ends the process.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

#include "common/checks.h"
#include "common/common.h"
#include "common/guard.h"
#include "common/module_state.h"
#include "common/reshdlevent.h"
#include "common/reshdleventother.h"
#include "common/trc_functions.h"
#include "platform/event_ids.h"
#include "support/log_capture.h"

namespace {

// The bus: keeps a reference of each event that is published.
struct FakeBus : MbFrame::IDispatch {
    FakeBus() { g_pDispatcher = this; }
    ~FakeBus() { g_pDispatcher = nullptr; }
    int32_t Invoke(MbFrame::IEvent* event) override {
        event->AddRef();
        events.emplace_back(event);
        return 0;
    }
    std::vector<ReshdlEventTrace::EventRef> events;
};

std::vector<std::string> given_back;  // by content

int release(char* buffer) {
    given_back.emplace_back(buffer);
    free(buffer);
    return 0;
}

// A builder's message, and a result of the trace module, that hold `content`.
ReshdlEventTrace::Payload ours(const char* content) { return {zel::MallocBuffer(strdup(content)), strlen(content)}; }
int32_t give_back(const char* input, uint32_t size, char** result, uint32_t* result_size) {
    *result = strdup(input);
    *result_size = size;
    return 0;
}
TraceResult theirs(const char* content) {
    TraceResult result;
    result.take(give_back, content, static_cast<uint32_t>(strlen(content)));
    return result;
}

TEST(Event, AnswersToOneInterfaceAndCountsItsReferences) {
    FakeBus bus;
    const auto event = InvokeEvent(769, 1536, ours("message"), "guid").event;
    ASSERT_EQ(bus.events.size(), 1u);
    EXPECT_EQ(std::tuple(event->GetEventId(), event->GetPublishedState()), std::tuple(769u, 1));
    const void* record = event->GetNativeEvent();
    EXPECT_EQ(std::string(static_cast<const char*>(record), 12), std::string("\x01\x03\0\0\x07\0\0\0\0\0\0\0", 12));
    EXPECT_STREQ(static_cast<const ST_PB_EVENT*>(record)->pszGuid, "guid");

    InterfaceId unequal = kIidEvent;
    unequal.Data4[7] = 1;
    void* out = &bus;
    for (const InterfaceId* id : {&kIidUnknown, &kIidDnsEvent, &kNoClassId, const_cast<const InterfaceId*>(&unequal)}) {
        EXPECT_EQ(event->QueryInterface(id, &out), static_cast<int32_t>(0x80004002));
        EXPECT_EQ(out, nullptr);
    }
    EXPECT_EQ(event->QueryInterface(&kIidEvent, nullptr), static_cast<int32_t>(0x80004003));
    EXPECT_EQ(event->QueryInterface(&kIidEvent, &out), 0);
    EXPECT_EQ(out, event.get());
    EXPECT_EQ(event->Release(), 2);
    EXPECT_EQ(event->AddRef(), 3);
    EXPECT_EQ(event->Release(), 2);
}

TEST(Event, GivesAResultOfTheTraceModuleBackIfTheModuleIsThere) {
    FakeBus bus;
    const auto table = std::make_shared<TrcFunctionTable>();
    table->trace_event_release = release;
    InvokeEvent(770, 1536, ours("ours"), "");
    InvokeEvent(770, 1536, theirs("left"), "");
    InvokeEvent(770, 1536, theirs("theirs"), "");
    g_trcModule.exchange(table);
    bus.events.pop_back();
    g_trcModule.exchange(nullptr);
    bus.events.clear();
    EXPECT_EQ(given_back, std::vector<std::string>{"theirs"});
}

TEST(Event, IsNotMadeWithoutMessageOrBusAndTheMessageComesBack) {
    zel_test::LogCapture::get().take();
    EXPECT_EQ(InvokeEvent(769, 1536, ReshdlEventTrace::Payload(), "").event, nullptr);
    auto sent = InvokeEvent(769, 1536, ours("kept"), "");
    EXPECT_EQ(sent.event, nullptr);
    EXPECT_STREQ(sent.refused.data(), "kept");
    EXPECT_EQ(zel_test::LogCapture::get().take_text(), "E Invoke buf is null!\nE dispatcher is null!\n");
}

TEST(Payload, GivesBackWhicheverOwnerItHas) {
    g_trcModule.exchange(nullptr);
    given_back.clear();
    for (auto* const make : {+[] { return ours("x"); }, +[] { return ReshdlEventTrace::Payload(theirs("x")); }}) {
        ReshdlEventTrace::Payload payload = make();
        payload.give_back();
        EXPECT_EQ(payload.data(), nullptr);
    }
    EXPECT_TRUE(given_back.empty()) << "the module is not there";
}

TEST(MemoryCheck, WithoutABusIsLeftAsItIs) {
    zel_test::LogCapture::get().take();
    for (char* const path : {strdup("path"), static_cast<char*>(nullptr)}) {
        ST_MEM_DETECT_INFO info{};
        info.pszPath = path;
        InvokeMdEvent(event_id::mem_detect, &info);
        char* const left = info.pszPath;  // the record is packed, so its members have no references
        EXPECT_EQ(left, path);
        free(left);
    }
    EXPECT_EQ(zel_test::LogCapture::get().take_text(), "E dispatcher is null!\nE dispatcher is null!\n");
}

TEST(Guard, TellsWhichExceptionEndedAStep) {
    const std::tuple<void (*)(), bool, const char*> rows[] = {
        {[] {}, true, ""},
        {[] { throw std::bad_alloc(); }, false, "E step given up: std::bad_alloc\n"},
        {[] { throw 7; }, false, "E step given up: unknown exception\n"},
    };
    zel_test::LogCapture::get().take();
    for (const auto& [step, done, line] : rows) {
        EXPECT_EQ(zel::guarded("step", step), done);
        EXPECT_EQ(zel_test::LogCapture::get().take_text(), line);
    }
}

TEST(Tick, IsTheMonotonicClockInMilliseconds) {
    const auto clock = [] {
        return uint64_t(std::chrono::steady_clock::now().time_since_epoch() / std::chrono::milliseconds(1));
    };
    const uint64_t before = clock(), tick = GetTickMs();
    EXPECT_LE(before, tick);
    EXPECT_LE(tick, clock());
}

TEST(Settings, WithLimitsThatMakeNoSenseEndTheProcess) {
    EXPECT_DEATH(CltCommon::IniGetUintExA("s", nullptr, 1, 0, 1, "f"), "`pszSection && pszKey && pszFilename'");
    EXPECT_DEATH(CltCommon::IniGetUintExA("s", "k", 0, 0, 1, "f"), "`uiDefault > 0 && uiMaxLimit > 0'");
    EXPECT_DEATH(CltCommon::IniGetUintExA("s", "k", 1, 2, 1, "f"), "`uiMaxLimit >= uiMinLimit'");
    EXPECT_DEATH(CltCommon::IniGetDoubleExA("s", "k", 1, 0, 0, "f"), "`dDefault > 0 && dMaxLimit > 0 && dMinLimit");
}

TEST(Checked, ArithmeticEndsTheProcessOnOverflow) {
    EXPECT_DEATH(zel::checked_add(INT32_MAX, 1), "addition overflows");
    EXPECT_DEATH(zel::checked_sub(INT64_MIN, int64_t{1}), "subtraction overflows");
    EXPECT_DEATH(zel::checked_mul(65536, 32768), "multiplication overflows");
}

}  // namespace
