// Outgoing events: their interface, their record, and what their last reference frees.
#include <gtest/gtest.h>

#include <cstring>

#include "common/checks.h"
#include "common/reshdleventother.h"
#include "common/trc_functions.h"
#include "support/fake_dispatcher.h"
#include "support/log_capture.h"

namespace {

using ReshdlEventTrace::CReshdlEventOther;
using ReshdlEventTrace::EventRef;

std::vector<std::string> given_back;  // by content

char* text(const char* content) { return strdup(content); }

int release(char* buffer) {
    given_back.emplace_back(buffer != nullptr ? buffer : "null");
    free(buffer);
    return 0;
}

// A builder's message, and a result of the trace module, that hold `content`.
ReshdlEventTrace::Payload ours(const char* content) { return {zel::MallocBuffer(text(content)), strlen(content)}; }
TraceResult theirs(const char* content, uint32_t size) {
    TraceResult result;
    const auto work = [](const char* input, uint32_t input_size, char** out, uint32_t* out_size) {
        *out = input != nullptr ? text(input) : nullptr;
        *out_size = input_size;
        return int32_t{0};
    };
    result.take(work, content, size);
    return result;
}

TEST(Event, AnswersToOneInterfaceAndCountsItsReferences) {
    zel_test::FakeDispatcher bus;
    const auto event = InvokeEvent(769, 1536, ours("message"), "guid").event;
    ASSERT_EQ(bus.events.size(), 1u);
    EXPECT_EQ(event->GetEventId(), 769u);
    EXPECT_EQ(event->GetPublishedState(), 1);
    unsigned char record[32];
    memcpy(record, event->GetNativeEvent(), sizeof record);
    EXPECT_EQ(std::string(record, record + 12), std::string("\x01\x03\0\0\x07\0\0\0\0\0\0\0", 12));
    const auto& payload = *static_cast<const ST_PB_EVENT*>(event->GetNativeEvent());
    EXPECT_STREQ(payload.pszGuid, "guid");

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
    zel_test::FakeDispatcher bus;
    const auto table = std::make_shared<TrcFunctionTable>();
    table->trace_event_release = release;
    InvokeEvent(770, 1536, ours("ours"), "");
    InvokeEvent(770, 1536, theirs("left", 4), "");
    InvokeEvent(770, 1536, theirs("theirs", 6), "");
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

TEST(TraceResult, GoesBackToTheModuleOnceAndANullOneWhenAsked) {
    const auto table = std::make_shared<TrcFunctionTable>();
    table->trace_event_release = release;
    g_trcModule.exchange(table);
    given_back.clear();
    {
        TraceResult null = theirs(nullptr, 7);
        EXPECT_EQ(null.size(), 0u);  // whatever size the module gave
        TraceResult moved = theirs("once", 4);
        const TraceResult result(std::move(moved));
        EXPECT_EQ(result.size(), 4u);
        ReshdlEventTrace::Payload(std::move(null)).give_back();
    }
    g_trcModule.exchange(nullptr);
    EXPECT_EQ(given_back, (std::vector<std::string>{"null", "once"}));
}

TEST(MemoryCheck, OwnsItsTextsForEvent2305Alone) {
    ST_MEM_DETECT_INFO info{};
    info.uPid = 42;
    info.pszPath = text("/bin/sh");
    info.pszPortsBinding = text("80");
    InvokeMdEvent(2305, &info);  // without a bus the texts stay
    zel_test::FakeDispatcher bus;
    EventRef(CReshdlEventOther::New(2304, &info)).reset();
    zel_test::LogCapture::get().take();
    InvokeMdEvent(2305, &info);
    EXPECT_EQ(zel_test::LogCapture::get().take_text(), "I start invoke md event!\nI invoke md event succeed!\n");
    const auto& record = *static_cast<const ST_MEM_DETECT_INFO*>(bus.events.at(0)->GetNativeEvent());
    EXPECT_EQ(uint32_t{record.uPid}, 42u);
    EXPECT_STREQ(record.pszPath, "/bin/sh");
    EXPECT_EQ(bus.events[0]->GetEventId(), 2305u);
}

TEST(Checked, ArithmeticEndsTheProcessOnOverflow) {
    EXPECT_DEATH(zel::checked_add(INT32_MAX, 1), "addition overflows");
    EXPECT_DEATH(zel::checked_sub(INT64_MIN, int64_t{1}), "subtraction overflows");
    EXPECT_DEATH(zel::checked_mul(65536, 32768), "multiplication overflows");
}

}  // namespace
