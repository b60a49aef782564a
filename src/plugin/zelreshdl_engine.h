// The plug-in object that the bus calls, and its attachment to the bus.
//
// Threads: OnAdvised runs on the starting thread, within LoadMbDll. OnEvent runs on the bus thread. LoadMbDll and
// Detach are called by start and stop, which never run at the same time.
#pragma once

#include <source_location>
#include <span>

#include "common/module_path.h"
#include "common/pure_mode.h"
#include "platform/mbframe.h"

// Identifies this plug-in to the bus. The constructor of the object fills it with a random number, so it changes from
// process to process.
extern unsigned char g_pluginGuid[16];

class CResultProcEngine final : public MbFrame::IPlugin {
public:
    // Makes the handle of g_hWorkMutex unless there is one. When that fails it ends the process with exit code 0, after
    // an ERROR line.
    CResultProcEngine();
    // Destroys that handle. It never runs for the one object.
    ~CResultProcEngine() override;

    // These answer 0 and do nothing. The object is never counted and never freed through them, so the bus cannot end
    // it.
    int32_t QueryInterface(const InterfaceId*, void**) override { return 0; }
    int64_t AddRef() override { return 0; }
    int64_t Release() override { return 0; }

    // Both answer 0x84ce0002 for a null `out`.
    int32_t GetPluginId(unsigned char* out) override;
    int32_t GetPluginKind(uint32_t* out) override;
    // Called by the bus within Advise. Reads the cache settings, hands over the subscription table and keeps the
    // dispatcher. 0, or 0x80004005 when memory ran out; nothing is kept then.
    int32_t OnAdvised(MbFrame::IPluginSetting* Setting, MbFrame::IDispatch* Dispatcher) override;
    int32_t OnNotify(uint32_t) override { return 0; }
    // Called by the bus for each event. It owns one reference of the event and gives it back. Always 0: the bus has no
    // use for an answer.
    int32_t OnEvent(MbFrame::IEvent* Evt, void* context) override;
    int32_t OnQuery(void*) override { return 0; }

    // Loads the bus and attaches to it. True if the bus has given a dispatcher. On failure all of it is undone.
    bool LoadMbDll();
    // Detaches from the bus and closes its library. No event arrives afterwards. Does nothing when the bus is not
    // loaded.
    void Detach();

private:
    bool attach(MbFrame::DllGetClassObject_t get_class_object);
    void handle_event(MbFrame::IEvent& event);
    void handle_dns_hit(MbFrame::IEvent& event);
    // The data of an event that carries a buffer; null after a log line. The data belongs to the event and lives as
    // long as the event.
    void* GetNativeEventData(MbFrame::IEvent* Evt);

    zel::Dll m_hMbModule;
    MbFrame::IRtmFrame* m_pRtmFrame = nullptr;  // one reference; null when not attached
    zel::PureMode m_pureMode;
};

// The first two steps of LoadMbDll: opens the bus, and looks up the function that gives its frame. Both are false after
// an ERROR line. Throw std::bad_alloc.
extern const zel::LibraryRow kBus;
bool open_bus(zel::Dll& bus);
bool find_class_object(const zel::Dll& bus, MbFrame::DllGetClassObject_t& function);
// The ERROR line of a start that is not attached, in the name of the caller.
void log_no_bus(std::source_location where = std::source_location::current());

// The events that the bus is told to deliver. The entries are constants and live as long as the process.
std::span<const MbFrame::EventTableEntry> subscription_table(bool pure_mode);

// The one object, made at the first call. It is never destroyed: the bus may call it up to the last moment of the
// process. Null when there is no memory; the next call tries again. Any thread.
CResultProcEngine* GetReshdlInstance();
