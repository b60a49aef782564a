// The plug-in object that the bus calls, and its attachment to the bus.
#pragma once

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
    bool GetNativeEventData(MbFrame::IEvent* Evt, void*& out);

    zel::Dll m_hMbModule;
    MbFrame::IRtmFrame* m_pRtmFrame = nullptr;  // valid while the library is loaded
    zel::PureMode m_pureMode;
};

// The one object, made at the first call and never deleted; null when there is no memory.
CResultProcEngine* GetReshdlInstance();
