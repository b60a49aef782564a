#include "plugin/zelreshdl_engine.h"

#include <uuid/uuid.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "common/checks.h"
#include "common/guard.h"
#include "common/log.h"
#include "common/module_state.h"
#include "common/never_ends.h"
#include "common/reshdlevent.h"
#include "common/statistics.h"
#include "pipeline/reshdlwork.h"
#include "plugin/zelreshdl_dns.h"
#include "suppress/fifoqueue.h"

unsigned char g_pluginGuid[16];

namespace {

// The agent's own codes for a bad argument and for a plug-in that does not want to be attached.
constexpr int32_t kNullArgument = static_cast<int32_t>(0x84ce0002);
constexpr int32_t kNotAdvised = static_cast<int32_t>(0x80004005);
constexpr uint32_t kPluginKind = 1;
constexpr uint32_t kAdviseFlag = 1;
constexpr uint32_t kPluginOption = 0x10000;
constexpr const char* kGetClassObject = "DllGetClassObject";

// The bus gets the tables exactly as they stand here. 1538 stands twice, and both the order and the doubled entry are
// kept.
constexpr MbFrame::EventTableEntry kNormalTable[] = {
    {event_id::ioa_alert, 1},
    {event_id::kov, 1},
    {event_id::ioc, 1},
    {event_id::trc_ex, 1},
    {event_id::ignored, 1},
    {event_id::unprocessed, 1},
    {event_id::memory_trojan, 1},
    {event_id::memory_trojan, 1},
    {event_id::brute_force, 1},
    {event_id::port_scan, 1},
    {event_id::abnormal_login, 1},
    {event_id::credible_event, 1},
    {event_id::event_detect, 1},
};
constexpr MbFrame::EventTableEntry kPureModeTable[] = {{event_id::brute_force, 1}, {event_id::abnormal_login, 1}};

void log_no_data() { LOG_ERROR("GetNativeEventData failed!"); }

}  // namespace

constinit const zel::LibraryRow kBus{"@/../lib/liblummb.so", {&kGetClassObject, 1}};

std::span<const MbFrame::EventTableEntry> subscription_table(bool pure_mode) {
    if (pure_mode) return kPureModeTable;
    return kNormalTable;
}

CResultProcEngine* GetReshdlInstance() {
    // Not MadeOnce: making this object can fail, and a failure must not be remembered.
    static constinit std::atomic<CResultProcEngine*> instance{nullptr};
    static constinit zel::NeverEnds<zel::PlainMutex> making;
    CResultProcEngine* engine = instance.load(std::memory_order_acquire);
    if (engine != nullptr) return engine;
    const zel::Lock lock(*making);
    engine = instance.load(std::memory_order_acquire);
    if (engine == nullptr) engine = new (std::nothrow) CResultProcEngine;  // without memory the next call tries again
    instance.store(engine, std::memory_order_release);
    return engine;
}

CResultProcEngine::CResultProcEngine() {
    uuid_generate(g_pluginGuid);
    if (g_hWorkMutex.init()) return;
    LOG_ERROR("mutex_init failed!");
    // Without this mutex no start could ever be undone.
    exit(0);
}

CResultProcEngine::~CResultProcEngine() { g_hWorkMutex.destroy(); }

int32_t CResultProcEngine::GetPluginId(unsigned char* out) {
    if (out == nullptr) return kNullArgument;
    uuid_copy(out, g_pluginGuid);
    return 0;
}

int32_t CResultProcEngine::GetPluginKind(uint32_t* out) {
    if (out == nullptr) return kNullArgument;
    *out = kPluginKind;
    return 0;
}

// A library that is open means that the bus is attached: a failed attachment closes it again.
bool CResultProcEngine::LoadMbDll() {
    if (m_hMbModule.handle() != nullptr) return true;
    if (!open_bus(m_hMbModule)) return false;
    MbFrame::DllGetClassObject_t get_class_object = nullptr;
    if (find_class_object(m_hMbModule, get_class_object) && attach(get_class_object)) return true;
    Detach();
    return false;
}

bool open_bus(zel::Dll& bus) {
    const int32_t result = bus.open(kBus.where());
    if (result != 0) LOG_ERROR("mb dll open failed!0x%08x", static_cast<uint32_t>(result));
    return result == 0;
}

bool find_class_object(const zel::Dll& bus, MbFrame::DllGetClassObject_t& function) {
    const int32_t result = bus.get(kGetClassObject, function);
    if (result != 0) LOG_ERROR("mb dll_get_addr failed!0x%08x", static_cast<uint32_t>(result));
    return result == 0;
}

void log_no_bus(std::source_location where) { LOG_ERROR_AT(where, "LoadMbDll failed!"); }

// Each failure is undone by the caller.
bool CResultProcEngine::attach(MbFrame::DllGetClassObject_t get_class_object) {
    void* frame = nullptr;
    int32_t result = get_class_object(&kNoClassId, &kIidRtmFrame, &frame);
    // Kept before the answer is looked at, so that a reference that came with a failure is given back as well.
    m_pRtmFrame = static_cast<MbFrame::IRtmFrame*>(frame);
    if (result != 0 || m_pRtmFrame == nullptr) {
        LOG_ERROR("mb get object failed!0x%08x", static_cast<uint32_t>(result));
        return false;
    }
    result = m_pRtmFrame->Advise(this, kAdviseFlag);
    if (result != 0) {
        LOG_ERROR("mb advise failed!0x%08x", static_cast<uint32_t>(result));
        return false;
    }
    // The bus may answer 0 although OnAdvised refused.
    if (g_pDispatcher.load(std::memory_order_acquire) == nullptr) {
        LOG_ERROR("init failed!");
        return false;
    }
    return true;
}

// The frame goes before its library, whose code the last call runs.
void CResultProcEngine::Detach() {
    if (m_hMbModule.handle() == nullptr) return;
    if (m_pRtmFrame != nullptr) {
        m_pRtmFrame->Unadvise(g_pluginGuid);
        m_pRtmFrame->Release();
        m_pRtmFrame = nullptr;  // its library goes, and a later failed start must not call it
    }
    m_hMbModule.close();
}

int32_t CResultProcEngine::OnAdvised(MbFrame::IPluginSetting* Setting, MbFrame::IDispatch* Dispatcher) {
    // The text of these two appears in the message, so it is written as it has always been shown.
    ZEL_ASSERT(__null != Setting);
    ZEL_ASSERT(__null != Dispatcher);
    // What can fail comes first. The dispatcher comes last: while it is set no later start attaches again.
    const bool advised = zel::guarded("attachment to the bus", [&] {
        g_hotCache.LoadCacheSettings();
        const auto table = subscription_table(m_pureMode.enabled());
        Setting->SetOption(kPluginOption);
        Setting->SetEventTable(table.data(), static_cast<uint32_t>(table.size()));
        g_pDispatcher.store(Dispatcher, std::memory_order_release);
    });
    return advised ? 0 : kNotAdvised;
}

int32_t CResultProcEngine::OnEvent(MbFrame::IEvent* Evt, void*) {
    if (Evt == nullptr) {
        LOG_ERROR("Evt is null, OnEvent do not handle");
        return 0;
    }
    // The bus has added a reference for the plug-in. It goes back when this function returns, also after an exception.
    const ReshdlEventTrace::EventRef event(Evt);
    zel::guarded("bus event", [&] { handle_event(*event); });
    return 0;
}

void CResultProcEngine::handle_event(MbFrame::IEvent& event) {
    // In a reset period events are let go without a line and without a count.
    if (g_iResetDb.load() == 1) return;
    const EVENT_ID id = event.GetEventId();
    if (!g_reshdlWork.IsCareEvent(id)) {
        LOG_DEBUG("Events do not.id:%u", id);
        return;
    }
    LOG_INFO("get event:%u", id);
    // Before the event is looked at, so that the count includes what is refused later.
    count(g_statistics.recvAlarmCount);
    if (id == event_id::ioc) return handle_dns_hit(event);
    if (void* const data = GetNativeEventData(&event); data != nullptr)
        g_reshdlWork.PushQueue(data, id);
    else
        log_no_data();
}

void CResultProcEngine::handle_dns_hit(MbFrame::IEvent& event) {
    std::unique_ptr<ST_IOC_MSG> msg = copy_dns_event(event);
    if (msg == nullptr) return log_no_data();
    // A repeat ends here: the cache has counted it, and the copy is freed.
    if (!g_hotCache.CheckAlertHot(*msg, event_id::ioc)) return g_reshdlWork.PushQueue(std::move(msg));
    LOG_DEBUG("The event is in the hot cache.event:%u", event_id::ioc);
    count(g_statistics.hotCacheHitCount);
}

// Borrowed from the event. Only ids whose native data is a buffer may be read as one.
void* CResultProcEngine::GetNativeEventData(MbFrame::IEvent* Evt) {
    ZEL_ASSERT(Evt);
    const EVENT_ID id = Evt->GetEventId();
    const EventRow* const row = find_event_row(id);
    if (row == nullptr || !row->carries_buffer) {
        LOG_WARN("unknown event id:%u", id);
        return nullptr;
    }
    void* const data = Evt->GetNativeEvent();
    if (data == nullptr) log_no_native_event();
    return data;
}
