#include "frame.h"

#include <algorithm>

#include "bus.h"
#include "bus_codes.h"

namespace {

// Has no state of its own, so one object serves all plug-ins.
class Dispatcher final : public MbFrame::IDispatch {
public:
    int32_t Invoke(MbFrame::IEvent* event) override {
        if (event == nullptr) return kInvalidArgument;
        Bus::instance().send_later(event);
        return kOk;
    }
};

// The count only shows who forgot to give a reference back. The object is never freed.
class Frame final : public MbFrame::IRtmFrame {
public:
    int32_t QueryInterface(const InterfaceId* iid, void** out) override {
        if (out == nullptr) return kNullPointer;
        *out = nullptr;
        // A frame whose count has reached 0 answers nothing more, as a freed object could not.
        const bool known = iid != nullptr && (*iid == kIidRtmFrame || *iid == kIidUnknown);
        if (!known || references_.add() == ReferenceCount::kLate) return kNoInterface;
        *out = static_cast<MbFrame::IRtmFrame*>(this);
        return kOk;
    }
    // A late call answers 0 like a count that has reached its end; kLate is for the bus alone.
    int64_t AddRef() override { return std::max<int64_t>(references_.add(), 0); }
    int64_t Release() override { return std::max<int64_t>(references_.drop(), 0); }
    void reserved6() override {}
    void reserved7() override {}
    // The flag has no meaning here.
    int32_t Advise(MbFrame::IPlugin* plugin, uint32_t) override {
        return plugin == nullptr ? kInvalidArgument : Bus::instance().advise(*plugin);
    }
    int32_t Unadvise(const unsigned char* plugin_id) override {
        if (plugin_id == nullptr) return kInvalidArgument;
        PluginId id;
        std::copy_n(plugin_id, id.size(), id.begin());
        return Bus::instance().unadvise(id);
    }

    ReferenceCount references_;
};

Frame& frame() {
    // Never destroyed: a plug-in may release it while the process ends.
    static Frame* const instance = new Frame;
    return *instance;
}

}  // namespace

MbFrame::IDispatch& bus_dispatcher() {
    static Dispatcher instance;
    return instance;
}

MbFrame::IRtmFrame* hand_out_frame() {
    frame().references_.hand_out();
    return &frame();
}

uint64_t frame_references() { return static_cast<uint64_t>(frame().references_.value()); }
