// The plug-in object that the bus calls, and its attachment to the bus.
#pragma once

#include <span>

#include "common/module_path.h"
#include "common/pure_mode.h"
#include "platform/mbframe.h"

// Identifies this plug-in to the bus; filled when the object is made.
extern unsigned char g_pluginGuid[16];

class CResultProcEngine final : public MbFrame::IPlugin {
public:
    // Creates the module-wide mutex if there is none; ends the process when that fails.
    CResultProcEngine();
    // Destroys the module-wide mutex.
    ~CResultProcEngine() override;

    // 0 and nothing written; the object is never counted and never freed through these.
    int32_t QueryInterface(const InterfaceId*, void**) override { return 0; }
    int64_t AddRef() override { return 0; }
    int64_t Release() override { return 0; }

    int32_t GetPluginId(unsigned char* out) override;
    int32_t GetPluginKind(uint32_t* out) override;
    int32_t OnAdvised(MbFrame::IPluginSetting* Setting, MbFrame::IDispatch* Dispatcher) override;
    int32_t OnNotify(uint32_t) override { return 0; }
    int32_t OnEvent(MbFrame::IEvent* Evt, void* context) override;
    int32_t OnQuery(void*) override { return 0; }

    // Loads the bus and advises it; true if that has given a dispatcher. On failure all is undone.
    bool LoadMbDll();
    // No event arrives afterwards. Does nothing when the bus is not loaded.
    void Detach();

private:
    bool attach();
    void handle_event(MbFrame::IEvent& event);
    void handle_dns_hit(MbFrame::IEvent& event);
    // The data of an event that carries a buffer; null after a log line. It is the event's and lives as long.
    void* GetNativeEventData(MbFrame::IEvent* Evt);

    zel::Dll m_hMbModule;
    MbFrame::IRtmFrame* m_pRtmFrame = nullptr;  // one reference; null while not attached
    zel::PureMode m_pureMode;
};

// What the bus is told to deliver. The entries are constants.
std::span<const MbFrame::EventTableEntry> subscription_table(bool pure_mode);

// The one object, made at the first call. It never ends: the bus may call it up to the last moment of the process. Null
// when there is no memory; the next call tries again. Any thread.
CResultProcEngine* GetReshdlInstance();
