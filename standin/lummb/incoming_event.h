// An event on its way from a host to plug-ins.
#pragma once

#include <memory>

#include "payload.h"
#include "platform/mbframe.h"
#include "reference_count.h"

// The last Release frees the payload at once. The empty object stays for a while, so a call that comes too late is
// counted instead of reaching freed memory. Made with one reference, which belongs to the maker. Any thread.
class IncomingEvent final : public MbFrame::IEvent {
public:
    IncomingEvent(uint32_t id, std::unique_ptr<Payload> payload);
    IncomingEvent(const IncomingEvent&) = delete;
    IncomingEvent& operator=(const IncomingEvent&) = delete;
    ~IncomingEvent() override = default;

    int32_t QueryInterface(const InterfaceId* iid, void** out) override;
    int64_t AddRef() override;
    int64_t Release() override;
    uint32_t GetEventId() override { return id_; }
    void* GetNativeEvent() override { return payload_ == nullptr ? nullptr : payload_->native(); }
    int32_t GetPublishedState() override { return 0; }

    // Events that were not yet released for the last time.
    static uint64_t alive();

private:
    // The second interface of a DNS event. It has the lifetime and the count of the event.
    class DnsFace final : public MbFrame::IDnsEvent {
    public:
        explicit DnsFace(IncomingEvent& owner) : owner_(owner) {}
        int32_t QueryInterface(const InterfaceId* iid, void** out) override { return owner_.QueryInterface(iid, out); }
        int64_t AddRef() override { return owner_.AddRef(); }
        int64_t Release() override { return owner_.Release(); }
        void reserved6() override {}
        void reserved7() override {}
        void reserved8() override {}
        // After the last Release there is no payload, and a late caller gets null.
        const char* GetQueryName() override {
            return owner_.payload_ == nullptr ? nullptr : owner_.payload_->query_name();
        }

    private:
        IncomingEvent& owner_;
    };

    const uint32_t id_;
    ReferenceCount references_;
    std::unique_ptr<Payload> payload_;
    DnsFace dns_face_;
};
