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
using ReshdlEventTrace::EDataType;
using ReshdlEventTrace::EventRef;

std::vector<std::string> given_back;  // by content

char* text(const char* content) { return strdup(content); }

int release(char* buffer) {
    given_back.emplace_back(buffer);
    free(buffer);
    return 0;
}

TEST(Event, AnswersToOneInterfaceAndCountsItsReferences) {
    zel_test::FakeDispatcher bus;
    EventRef event = InvokeEvent(769, 1536, text("message"), 7, EDataType::plugin, "guid");
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
    event.reset();
    EXPECT_EQ(bus.events[0]->AddRef(), 2);
    EXPECT_EQ(bus.events[0]->Release(), 1);
}

TEST(Event, GivesAResultOfTheTraceModuleBackIfTheModuleIsThere) {
    zel_test::FakeDispatcher bus;
    const auto table = std::make_shared<TrcFunctionTable>();
    table->trace_event_release = release;
    InvokeEvent(770, 1536, text("ours"), 4, EDataType::plugin, "");
    InvokeEvent(770, 1536, text("left"), 4, EDataType::trace_module, "");
    InvokeEvent(770, 1536, text("theirs"), 6, EDataType::trace_module, "");
    g_trcModule.exchange(table);
    bus.events.pop_back();
    g_trcModule.exchange(nullptr);
    bus.events.clear();
    EXPECT_EQ(given_back, std::vector<std::string>{"theirs"});
}

TEST(Event, LeavesTheBufferToTheCallerWhenItCannotBePublished) {
    char buffer[] = "kept";
    zel_test::LogCapture::get().take();
    EXPECT_EQ(InvokeEvent(769, 1536, nullptr, 4, EDataType::plugin, ""), nullptr);
    EXPECT_EQ(InvokeEvent(769, 1536, buffer, 4, EDataType::plugin, ""), nullptr);
    EXPECT_EQ(zel_test::LogCapture::get().take_text(), "E Invoke buf is null!\nE dispatcher is null!\n");
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
