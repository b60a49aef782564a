// The bus as the plug-in's floors below the attachment see it: keeps a reference of each event that is published.
#pragma once

#include <vector>

#include "common/module_state.h"
#include "common/reshdlevent.h"

namespace zel_test {

class FakeDispatcher : public MbFrame::IDispatch {
public:
    FakeDispatcher() { g_pDispatcher = this; }
    ~FakeDispatcher() { g_pDispatcher = nullptr; }
    int32_t Invoke(MbFrame::IEvent* event) override {
        event->AddRef();
        events.emplace_back(event);
        return 0;
    }
    std::vector<ReshdlEventTrace::EventRef> events;
};

}  // namespace zel_test
