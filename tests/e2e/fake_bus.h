// A bus that only notes what it is asked, for the scripted library in place of the bus.
#pragma once

#include <functional>
#include <string>

#include "e2e/harness.h"

namespace e2e {

struct FakeBus final : MbFrame::IRtmFrame, MbFrame::IPluginSetting, MbFrame::IDispatch {
    int32_t QueryInterface(const InterfaceId*, void**) override { return note("QueryInterface"); }
    int64_t AddRef() override { return note("AddRef"); }
    int64_t Release() override { return note("Release"); }
    void reserved6() override { note("reserved6"); }
    void reserved7() override { note("reserved7"); }
    int32_t Advise(MbFrame::IPlugin* plugin, uint32_t flag) override {
        uint32_t kind = 0;
        EXPECT_EQ(plugin->GetPluginKind(&kind), 0);
        for (const int32_t code : {plugin->GetPluginId(nullptr), plugin->GetPluginKind(nullptr)})
            EXPECT_EQ(static_cast<uint32_t>(code), 0x84ce0002);
        note("Advise " + std::to_string(flag) + " kind " + std::to_string(kind));
        if (calls_back) plugin->OnAdvised(this, this);
        if (advised) advised(*plugin);
        return advise_result;
    }
    int32_t Unadvise(const unsigned char*) override { return note("Unadvise"); }
    int32_t SetOption(uint32_t value) override { return note("SetOption " + std::to_string(value)); }
    int32_t reserved2() override { return note("reserved2"); }
    int32_t SetEventTable(const MbFrame::EventTableEntry* table, uint32_t count) override {
        note("SetEventTable");
        for (uint32_t i = 0; i < count; ++i) note(std::to_string(table[i].uEventId) + (table[i].uFlag == 1 ? "" : "?"));
        return 0;
    }
    int32_t Invoke(MbFrame::IEvent*) override { return note("Invoke"); }

    // The calls so far, each with a space behind it.
    std::string calls() const {
        return locked([this] { return calls_; });
    }

    int32_t class_result = 0;
    int32_t advise_result = 0;
    bool calls_back = true;
    std::function<void(MbFrame::IPlugin& plugin)> advised;  // at the end of Advise

private:
    int32_t note(const std::string& call) {
        locked([&] { calls_ += call + " "; });
        return 0;
    }

    std::string calls_;
};
// Never destroyed: the plug-in keeps the dispatcher.
inline FakeBus& fake_bus = *new FakeBus;

}  // namespace e2e
