#include "common/reshdleventother.h"

#include <array>
#include <cstdlib>
#include <new>

#include "common/checks.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/module_state.h"
#include "platform/event_ids.h"

namespace {

// Returns the pointers by value. The record is packed, so a reference to a member could be misaligned.
std::array<char*, 11> container_texts(const ST_MEM_DETECT_INFO& info) {
    return {info.pszRepository,    info.pszMounts,      info.pszUser,        info.pszNamespace,
            info.pszImageId,       info.pszContainerId, info.pszImageTag,    info.pszImageName,
            info.pszContainerName, info.pszCapability,  info.pszPortsBinding};
}

// Tells a leak checker of each text. It would not find the pointers itself, for nothing holds the record afterwards.
void leave_texts(const ST_MEM_DETECT_INFO& info) {
    zel::leave_allocated(info.pszPath);
    for (const char* text : container_texts(info)) zel::leave_allocated(text);
}

}  // namespace

void FreeMemDetectInfo(ST_MEM_DETECT_INFO& stInfo) {
    free(stInfo.pszPath);
    stInfo.pszPath = nullptr;
    for (char* text : container_texts(stInfo)) free(text);
}

namespace ReshdlEventTrace {

// The texts belong to the event only when there is one.
CReshdlEventOther* CReshdlEventOther::New(uint32_t uEventId, const ST_MEM_DETECT_INFO* pInfo) {
    ZEL_ASSERT(pInfo);
    auto* event = new (std::nothrow) CReshdlEventOther(uEventId, *pInfo);
    if (event == nullptr) {
        LOG_WARN("Create event Failed");
        return nullptr;
    }
    event->AddRef();
    return event;
}

CReshdlEventOther::~CReshdlEventOther() {
    if (m_uEventId == event_id::mem_detect) FreeMemDetectInfo(m_stNative);
}

}  // namespace ReshdlEventTrace

void InvokeMdEvent(uint32_t uEventId, ST_MEM_DETECT_INFO* pInfo) {
    MbFrame::IDispatch* const dispatcher = g_pDispatcher.load(std::memory_order_acquire);
    if (dispatcher == nullptr) {
        LOG_ERROR("dispatcher is null!");
        leave_texts(*pInfo);  // nobody takes them over, neither this function nor its caller
        return;
    }
    LOG_INFO("start invoke md event!");
    ReshdlEventTrace::EventRef event(ReshdlEventTrace::CReshdlEventOther::New(uEventId, pInfo));
    if (event == nullptr) {
        LOG_ERROR("create event error!");
        if (pInfo->pszPath != nullptr)
            FreeMemDetectInfo(*pInfo);
        else
            leave_texts(*pInfo);  // a record without a path is given up as it is
        return;
    }
    dispatcher->Invoke(event.get());
    event.reset();
    LOG_INFO("invoke md event succeed!");
}
