#include "common/reshdlevent.h"

#include <cstring>
#include <new>

#include "common/checks.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/module_state.h"
#include "common/trc_functions.h"

namespace ReshdlEventTrace {
namespace {

constexpr int32_t kNoInterface = static_cast<int32_t>(0x80004002);
constexpr int32_t kNullPointer = static_cast<int32_t>(0x80004003);

}  // namespace

int32_t CountedEvent::QueryInterface(const InterfaceId* iid, void** out) {
    if (out == nullptr) return kNullPointer;
    if (iid == nullptr || !(*iid == kIidEvent)) {
        *out = nullptr;
        return kNoInterface;
    }
    *out = static_cast<MbFrame::IEvent*>(this);
    AddRef();
    return 0;
}

int64_t CountedEvent::AddRef() { return zel_atomic64_add_and_fetch(&m_llRef, 1); }

int64_t CountedEvent::Release() {
    const int64_t left = zel_atomic64_add_and_fetch(&m_llRef, -1);
    if (left > 0) return left;
    delete this;
    return 0;
}

CReshdlEvent* CReshdlEvent::New(uint32_t uEventId, uint32_t uSourceEventId, char* pPbEvent, uint64_t uSize,
                                EDataType eType, const char* pszGuid) {
    ZEL_ASSERT(pPbEvent);
    auto* event = new (std::nothrow) CReshdlEvent(uEventId, uSourceEventId, pPbEvent, uSize, eType, pszGuid);
    if (event == nullptr) {
        LOG_WARN("Create event Failed");
        return nullptr;
    }
    event->AddRef();
    return event;
}

CReshdlEvent::CReshdlEvent(uint32_t uEventId, uint32_t uSourceEventId, char* pPbEvent, uint64_t uSize, EDataType eType,
                           const char* pszGuid)
    : m_eType(eType), m_stNative{uEventId, uSize, pPbEvent, uSourceEventId, nullptr} {
    const size_t size = strlen(pszGuid) + 1;
    zel::MallocBuffer copy = zel::calloc_buffer(size);
    if (copy != nullptr) memcpy(copy.get(), pszGuid, size);
    m_stNative.pszGuid = copy.release();
}

CReshdlEvent::~CReshdlEvent() {
    free(m_stNative.pszGuid);
    if (m_eType == EDataType::plugin) free(m_stNative.pData);
    if (m_eType == EDataType::trace_module) release_trace_result(m_stNative.pData);
}

}  // namespace ReshdlEventTrace

ReshdlEventTrace::EventRef InvokeEvent(uint32_t uEventId, uint32_t uSourceEventId, char* pBuffer, uint64_t uSize,
                                       ReshdlEventTrace::EDataType eType, const char* pszGuid) {
    if (pBuffer == nullptr) {
        LOG_ERROR("Invoke buf is null!");
        return nullptr;
    }
    MbFrame::IDispatch* const dispatcher = g_pDispatcher.load(std::memory_order_acquire);
    if (dispatcher == nullptr) {
        LOG_ERROR("dispatcher is null!");
        return nullptr;
    }
    LOG_INFO("invoke buf size:%u", static_cast<uint32_t>(uSize));
    ReshdlEventTrace::EventRef event(
        ReshdlEventTrace::CReshdlEvent::New(uEventId, uSourceEventId, pBuffer, uSize, eType, pszGuid));
    if (event == nullptr) {
        LOG_ERROR("create event error!");
        return nullptr;
    }
    dispatcher->Invoke(event.get());
    LOG_INFO("invoke event succeed!");
    return event;
}
