// DNS hits. A hit has no rules, so the alert gets one that is made up, with one event: the query. Any refused text ends
// the alert.
#include <cstddef>
#include <span>
#include <string_view>

#include "common/log.h"
#include "decode/processtreeselector.h"
#include "trace/getprotobuf.h"
#include "trace/getprotobuf_steps.h"
#include "trace/text_check.h"

using namespace vorn_retrace;

namespace {

constexpr int kConfidence = 100;  // the query was for a name that is known to be bad

// A text of the variant area and where it goes. It is checked over its whole array, padding included.
template <class Message>
struct AreaText {
    std::string* (Message::*target)();
    size_t offset;
    size_t size;
};

// The process that asked for the name, in the order in which the texts are checked.
constexpr AreaText<process_vertex> kSubjectTexts[] = {
    {&process_vertex::mutable_process_guid, offsetof(IocVariant2, szGuid), sizeof(IocVariant2::szGuid)},
    {&process_vertex::mutable_process_path, offsetof(IocVariant2, szPath), sizeof(IocVariant2::szPath)},
    {&process_vertex::mutable_process_md5, offsetof(IocVariant2, szMd5), sizeof(IocVariant2::szMd5)},
    {&process_vertex::mutable_process_sha256, offsetof(IocVariant2, szSha256), sizeof(IocVariant2::szSha256)},
    {&process_vertex::mutable_process_commandline, offsetof(IocVariant2, szCmd), sizeof(IocVariant2::szCmd)},
    {&process_vertex::mutable_process_user, offsetof(IocVariant2, szUser), sizeof(IocVariant2::szUser)},
};
// The query.
constexpr AreaText<dns_query_vertex> kObjectTexts[] = {
    {&dns_query_vertex::mutable_dns_name, offsetof(IocVariant2, szDomain), sizeof(IocVariant2::szDomain)},
    {&dns_query_vertex::mutable_dns_results, offsetof(IocVariant2, szDnsResults), sizeof(IocVariant2::szDnsResults)},
};

// The text from a place in the area up to the first zero byte. An array that is full to its last byte runs on into the
// next one, so the bound is the end of the area.
std::string text_in(const IocVariant2& stArea, size_t offset) {
    const std::string_view bytes(reinterpret_cast<const char*>(&stArea), sizeof stArea);
    return std::string(bytes.substr(offset, bytes.find('\0', offset) - offset));
}

// Sets nothing unless all texts pass.
template <class Message>
bool set_area_texts(std::span<const AreaText<Message>> texts, const IocVariant2& stArea, Message& message) {
    for (const AreaText<Message>& text : texts)
        if (!CheckDsStr(reinterpret_cast<const char*>(&stArea) + text.offset, text.size)) return false;
    for (const AreaText<Message>& text : texts) *(message.*text.target)() = text_in(stArea, text.offset);
    return true;
}

// The container texts of a hit, each up to its terminator: what stands behind it is not checked.
zel::ContainerTexts container_of(const ST_IOC_MSG& msg) {
    using zel::array_text;
    return {.strContainerId = array_text(msg.szContainerId),
            .strRepository = array_text(msg.szRepository),
            .strMounts = array_text(msg.szMounts),
            .strUser = array_text(msg.szUser),
            .strNamespace = array_text(msg.szNamespace),
            .strImageId = array_text(msg.szImageId),
            .strImageTag = array_text(msg.szImageTag),
            .strContainerName = array_text(msg.szContainerName),
            .strCapability = array_text(msg.szCapability),
            .strPortsBinding = array_text(msg.szPortsBinding),
            .strImageName = array_text(msg.szImageName)};
}

}  // namespace

// The risk level, the score and the confidence are the same for every hit.
uint64_t CGetProtobuf::GetIocProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer) {
    const zel::TraceInfo info;
    threat_alert* alert = info->mutable_threat();
    if (!zel::passed(alert != nullptr, "mutable_threat failed!")) return 0;
    if (!zel::passed(GetMainBuf(info.get(), TRACE_CMD_BASE_INFO), "GetMainBuf failed!")) return 0;
    info->add_trace_tags_exs()->set_str_data("IOC");
    if (!zel::passed(GetIocThreatAlertInfo(stNode, alert), "GetThreatAlertInfo failed!")) return 0;
    return SerializeTraceInfo(*info, buffer);
}

// The key of the hot cache goes along: it is by this key that the later batch of repeats names the hit.
bool CGetProtobuf::GetIocThreatAlertInfo(const ST_QUEQE_NODE& stNode, threat_alert* pAlert) {
    const ST_IOC_MSG& msg = *stNode.pIocMsg;
    pAlert->set_alert_type(VORN_RISK_IOC);
    if (!CheckDsStr(stNode.szGuid, sizeof stNode.szGuid)) return false;
    pAlert->set_alert_guid(zel::array_text(stNode.szGuid));
    pAlert->set_same_alert_key(stNode.ullCacheKey);
    pAlert->set_risk_level(VORN_RISK_LEVEL_CRITICAL);
    const auto score = static_cast<float>(static_cast<uint64_t>(msg.llScore));
    pAlert->set_threat_score(score);
    pAlert->set_total_score(score);
    if (!CheckDsStr(msg.strQueryName)) return false;
    pAlert->set_malicious_key(msg.strQueryName);
    pAlert->set_alert_new_time(static_cast<int64_t>(msg.alert_time()));
    pAlert->set_alert_old_time(static_cast<int64_t>(msg.alert_time()));

    zel::ContainerTexts container = container_of(msg);
    if (!zel::fill_container(*pAlert, container)) return false;
    pAlert->set_container_init_pid(static_cast<int32_t>(msg.uHead[0]));
    return SetIocEventInfo(msg, pAlert);
}

bool CGetProtobuf::SetIocEventInfo(const ST_IOC_MSG& stMsg, threat_alert* pAlert) {
    threat_rule* rule = pAlert->add_alert_rule();
    threat_event* event = rule->add_alert_event();
    rule->set_confidence(kConfidence);
    event->set_type(VORN_TRACE_DNS_QUERY);
    event->set_op_time(static_cast<int64_t>(stMsg.alert_time()));
    const IocVariant2& area = stMsg.process();
    if (!SetSubjectInfo(area, event)) {
        LOG_ERROR("SetSubjectInfo failed!");
        return false;
    }
    return SetIocObjectInfo(area, event);
}

// The process id is widened with its sign, so an id above INT32_MAX becomes a very large number.
bool CGetProtobuf::SetSubjectInfo(const IocVariant2& stArea, threat_event* pEvent) {
    process_vertex* subject = pEvent->mutable_subject_process();
    if (!zel::passed(subject != nullptr, "mutable_subject_process failed!")) return false;
    if (!set_area_texts<process_vertex>(kSubjectTexts, stArea, *subject)) return false;
    subject->set_process_id(static_cast<uint64_t>(static_cast<int32_t>(stArea.uPid)));
    subject->set_process_createtime(stArea.llCreateTime);
    ProcessTreeSelector::Instance().SetSelection(stArea.uPid, stArea.llCreateTime, subject->process_path());
    return true;
}

// The line of a failure names another object. Operators know it so.
bool CGetProtobuf::SetIocObjectInfo(const IocVariant2& stArea, threat_event* pEvent) {
    dns_query_vertex* object = pEvent->mutable_object_dns_query();
    if (!zel::passed(object != nullptr, "mutable_object_file_rename failed!")) return false;
    if (!set_area_texts<dns_query_vertex>(kObjectTexts, stArea, *object)) return false;
    object->set_dns_status(stArea.nDnsStatus);
    return true;
}
