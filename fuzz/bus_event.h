// An incoming event of a bus that a target plays: it counts its references and borrows its record and its name.
#pragma once

#include "platform/event_ids.h"
#include "platform/mbframe.h"

namespace fuzz {

class BusEvent final : public MbFrame::IEvent, public MbFrame::IDnsEvent {
public:
    // One reference, the one that the bus adds for the plug-in.
    BusEvent(EVENT_ID id, const void* native, const char* query_name = nullptr)
        : id_(id), native_(native), query_name_(query_name) {}

    int32_t QueryInterface(const InterfaceId*, void** out) override {
        *out = static_cast<MbFrame::IDnsEvent*>(this);
        ++references_;
        return 0;
    }
    int64_t AddRef() override { return ++references_; }
    int64_t Release() override { return --references_; }
    uint32_t GetEventId() override { return id_; }
    void* GetNativeEvent() override { return const_cast<void*>(native_); }
    int32_t GetPublishedState() override { return 0; }
    void reserved6() override {}
    void reserved7() override {}
    void reserved8() override {}
    const char* GetQueryName() override { return query_name_; }

    int64_t references() const { return references_; }

private:
    EVENT_ID id_;
    const void* native_;
    const char* query_name_;
    int64_t references_ = 1;
};

}  // namespace fuzz
