#include "pipeline/ioainfo_memdetect.h"

#include "common/log.h"
#include "common/memory.h"
#include "common/reshdleventother.h"
#include "decode/memory_party.h"
#include "platform/event_ids.h"

namespace {

// Null for an empty text. Without memory the check goes out without the text: the process is what matters.
char* copy_text(const std::string& text) {
    if (text.empty()) return nullptr;
    zel::MallocBuffer copy = zel::copy_bytes(text.c_str(), text.size() + 1);
    if (copy == nullptr) LOG_ERROR("no memory for a text of a memory check: %s", text.c_str());
    return copy.release();
}

ST_MEM_DETECT_INFO describe_container() {
    const ST_CONTAINER_INFO& container = g_stContainerInfo;
    ST_MEM_DETECT_INFO info{};
    info.uContainerInitPid = static_cast<uint32_t>(container.llContainerInitPid);
    info.uPrivileged = container.uPrivileged;
    info.pszRepository = copy_text(container.strRepository);
    info.pszMounts = copy_text(container.strMounts);
    info.pszUser = copy_text(container.strUser);
    info.pszNamespace = copy_text(container.strNamespace);
    info.pszImageId = copy_text(container.strImageId);
    info.pszContainerId = copy_text(container.strContainerId);
    info.pszImageTag = copy_text(container.strImageTag);
    info.pszImageName = copy_text(container.strImageName);
    info.pszContainerName = copy_text(container.strContainerName);
    info.pszCapability = copy_text(container.strCapability);
    info.pszPortsBinding = copy_text(container.strPortsBinding);
    return info;
}

void invoke_for(const ProcessParty& party, int64_t llOpTime, int32_t nConfidence, std::set<uint32_t>& setDone) {
    if (setDone.contains(party.uPid)) return;
    const std::string& image = *party.pstrImage;
    zel::MallocBuffer path = zel::copy_bytes(image.c_str(), image.size() + 1);
    if (path == nullptr) {
        LOG_ERROR("malloc failed!");
        return;
    }
    setDone.insert(party.uPid);  // may fail, so it comes before the record, whose texts have no owner but the event

    ST_MEM_DETECT_INFO info = describe_container();
    info.llOpTime = llOpTime;
    info.uPid = party.uPid;
    info.llCreateTime = party.llCreateTime;
    info.pszPath = path.release();
    info.nConfidence = nConfidence;
    InvokeMdEvent(event_id::mem_detect, &info);
    // The event may be gone with its texts, so the path is the record's; it was never sent when the pointer was nulled.
    LOG_INFO("invoke MEM_DETECT_EVENT: pid [%d], path [%s], confidence [%d]", static_cast<int>(party.uPid),
             info.pszPath != nullptr ? image.c_str() : "", nConfidence);
}

}  // namespace

void InvokeMemDetect(const ST_RAW_EVENT& stEvent, uint32_t uMask, int32_t nConfidence, std::set<uint32_t>& setDone) {
    if ((uMask & memory_check::subject) != 0)
        invoke_for({stEvent.uPid, stEvent.llCreateTime, &stEvent.strImage}, stEvent.llOpTime, nConfidence, setDone);
    if ((uMask & memory_check::object) == 0) return;
    const auto object = object_process(stEvent);
    if (object.has_value())
        invoke_for(*object, stEvent.llOpTime, nConfidence, setDone);
    else
        LOG_ERROR("Type is not supported.%d", static_cast<int>(stEvent.uType));
}
