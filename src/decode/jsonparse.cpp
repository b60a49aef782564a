// The document, its rules and the subjects of its events. What an event acted upon is read in ioainfo.cpp, the scenario
// and the post-operations in ioainfo_scenario.cpp.
#include "decode/jsonparse.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "common/checks.h"
#include "common/log.h"
#include "common/memory.h"
#include "decode/alert_types.h"
#include "decode/decode_state.h"
#include "decode/json_fields.h"
#include "decode/key_rows.h"
#include "decode/observer.h"

using zel::Field;
using zel::JsonObject;
using zel::KeyRow;
using zel::Need;
using zel::ValueKind;
using zel::Words;

namespace {

constexpr Field<zel::Scratch> kAlertTypeField = {"alert_type", &zel::Scratch::nCurAlertType};

// Keys of every document, in reading order.
constexpr Field<ST_BUF_DATA> kRootFields[] = {
    {"risk_level", &ST_BUF_DATA::strRiskLevel},
    {"threat_score", &ST_BUF_DATA::uThreatScore},
    {"total_score", &ST_BUF_DATA::uTotalScore},
    {"verify_score", &ST_BUF_DATA::uVerifyScore},
    {"verify_total_score", &ST_BUF_DATA::uVerifyTotalScore},
    {"count", &ST_BUF_DATA::uCount},
    {"hash", &ST_BUF_DATA::llHash},
    {"engine_ver", &ST_BUF_DATA::strEngineVer},
    {"engine_rule_ver", &ST_BUF_DATA::strEngineRuleVer},
};

// Keys of a document that describes a container. The engines mix upper and lower case as shown.
constexpr Field<ST_BUF_DATA> kContainerFields[] = {
    {"containerid", &ST_BUF_DATA::strContainerId}, {"repository", &ST_BUF_DATA::strRepository},
    {"mounts", &ST_BUF_DATA::strMounts},           {"user", &ST_BUF_DATA::strUser},
    {"namespace", &ST_BUF_DATA::strNamespace},     {"imageid", &ST_BUF_DATA::strImageId},
    {"imagetag", &ST_BUF_DATA::strImageTag},       {"containername", &ST_BUF_DATA::strContainerName},
    {"Capability", &ST_BUF_DATA::strCapability},   {"PortsBinding", &ST_BUF_DATA::strPortsBinding},
    {"ImageName", &ST_BUF_DATA::strImageName},     {"ContainerInitPid", &ST_BUF_DATA::nContainerInitPid},
    {"Privileged", &ST_BUF_DATA::uPrivileged},
};

constexpr Field<ST_BUF_DATA> kMaliciousKeyField = {"malicious_key", &ST_BUF_DATA::strMaliciousKey};
constexpr Field<ST_BUF_DATA> kExtendedMsgField = {"msg", &ST_BUF_DATA::strExtendedMsg};
constexpr Field<ST_BUF_DATA> kGuidField = {"Guid", &ST_BUF_DATA::strGuid};

constexpr Field<ST_RULE> kRuleFields[] = {
    {"rule_id", &ST_RULE::strRuleId},
    {"mitre_id", &ST_RULE::strMitreId},
    {"rule_desc", &ST_RULE::strRuleDesc},
    {"status", &ST_RULE::strStatus},
    {"score", &ST_RULE::nScore},
    {"version", &ST_RULE::strVersion},
    {"rule_name", &ST_RULE::strRuleName},
    {"internal_id", &ST_RULE::strInternalId, Need::warned},
    {"risk_tag", &ST_RULE::strRiskTag, Need::silent},
    {"confidence", &ST_RULE::nConfidence, Need::silent},
};

// The subject of an event, whatever its type.
constexpr Field<ST_RAW_EVENT> kSubjectFields[] = {
    {"version", &ST_RAW_EVENT::uVersion},
    {"type", &ST_RAW_EVENT::uType},
    {"SubjectPid", &ST_RAW_EVENT::uPid},
    {"SubjectTid", &ST_RAW_EVENT::uTid},
    {"SubjectImage", &ST_RAW_EVENT::strImage},
    {"SubjectCmd", &ST_RAW_EVENT::strCmd},
    {"SubjectCreateTime", &ST_RAW_EVENT::llCreateTime},
    {"SubjectUser", &ST_RAW_EVENT::strUser},
    {"LoginName", &ST_RAW_EVENT::strLoginName, Need::optional},
    {"SshIp", &ST_RAW_EVENT::strSshIp, Need::optional},
    {"SubjectMd5", &ST_RAW_EVENT::strMd5, Need::optional},
    {"SubjectSha256", &ST_RAW_EVENT::strSha256, Need::optional},
    {"SubjectGuid", &ST_RAW_EVENT::strGuid},
    {"OpTime", &ST_RAW_EVENT::llOpTime},
};

// Keys of lists and objects, which have no table.
constexpr zel::Key kRuleKey = "rule";
constexpr zel::Key kExtendedInfoKey = "ExtendedInfo";
constexpr zel::Key kTagsKey = "tags";
constexpr zel::Key kEventKey = "event";
constexpr zel::Key kHighlightKey = "Highlight";
constexpr zel::Key kSubHighlightKey = "SubHighLight";

// The memory checks of a later scan describe this container. It is replaced as a whole or, without memory, not at all.
void keep_container(const ST_BUF_DATA& data) {
    const zel::ContainerTexts& texts = data;
    g_stContainerInfo = {texts, data.nContainerInitPid, data.uPrivileged};
    LOG_DEBUG("jsonparse_strContainerId:%s, strImageId:%s, strContainerName:%s", data.strContainerId.c_str(),
              data.strImageId.c_str(), data.strContainerName.c_str());
}

// The tree of a larger document ends as soon as it is decoded: its blocks would not lie side by side for the next one.
constexpr uint64_t kLargeDocument = 1 << 20;

// Room for the elements of a list: records are large, and a list that grows moves them. Bounded, since elements that
// are no records are refused one by one, and two bytes of text must not ask for a whole record.
size_t expected(const cJSON& array) {
    constexpr size_t kMost = 1024;
    size_t count = 0;
    for (const cJSON* item = array.child; item != nullptr && count < kMost; item = item->next) ++count;
    return count;
}

bool read_alert_type(const JsonObject& root, ST_BUF_DATA& data) {
    zel::Scratch& scratch = zel::decode_state().scratch;
    scratch.nCurAlertType = 0;
    if (!zel::read_field(root, scratch, kAlertTypeField, Words::not_string)) return false;
    if (scratch.nCurAlertType < 1 || scratch.nCurAlertType > alert_type::highest) {
        LOG_ERROR("The json event is unknown.%d", scratch.nCurAlertType);
        zel::observe::unknown_number(root.node(), kAlertTypeField.key.name);
        return false;
    }
    data.nAlertType = scratch.nCurAlertType;
    return true;
}

// Tags come before the score is judged, and events last: a rule whose events fail can still be the best one.
bool read_rule(const JsonObject& object, ST_RULE& rule) {
    if (!zel::read_fields(object, rule, kRuleFields, Words::not_string)) return false;
    CEventHandle::GetRuleTagsInfo(object, rule.vecTags);
    // A memory finding of a high score is certain, whatever the engine says.
    zel::Scratch& scratch = zel::decode_state().scratch;
    if (scratch.nCurAlertType == alert_type::memory && rule.nScore > 6) rule.nConfidence = 100;
    scratch.note_rule(rule);
    if (!CEventHandle::GetRawEventInfo(object, rule.vecEvent)) {
        LOG_ERROR("GetRawEventInfo failed!");
        return false;
    }
    return true;
}

// A failed record fails the event. What is wrong in a post-operation does not. The time is noted even when the record
// fails afterwards.
bool read_event(const JsonObject& object, ST_RAW_EVENT& event) {
    if (!zel::read_fields(object, event, kSubjectFields, Words::not_type)) return false;
    CEventHandle::GetHighlightInfo(object, event.vecHighlight, kHighlightKey.name);
    CEventHandle::GetHighlightInfo(object, event.vecSubHighlight, kSubHighlightKey.name);
    zel::decode_state().scratch.note_op_time(event.llOpTime);
    if (!CEventHandle::GetEventPrivateInfo(object, event)) {
        LOG_ERROR("GetEventPrivateInfo error!");
        return false;
    }
    CEventHandle::GetPostOprInfo(object, event);
    return true;
}

}  // namespace

void zel::append_texts(const cJSON& array, std::vector<std::string>& texts) {
    for (const cJSON* item = array.child; item != nullptr; item = item->next)
        if (item->valuestring != nullptr) texts.emplace_back(item->valuestring);
}

// The parser reads up to the first NUL byte. The node has a spare one behind its data, so a text without any ends
// there.
bool CEventHandle::GetJsonInfo(ST_QUEQE_NODE* pNode, ST_BUF_DATA& stData) {
    if (pNode->pData == nullptr) return false;
    stData.tree.reset(zel::observe::parse(pNode->pData.get()));
    if (stData.tree == nullptr) return false;
    const JsonObject root(stData.tree.get());
    const bool decoded = GetJsonInfoEx(root, stData);
    if (!zel::read_field(root, stData, kGuidField, Words::not_string)) {
        // A document that cannot be named is given up together with its tree.
        zel::leave_allocated(stData.tree.release());
        return false;
    }
    // A longer text loses its tail; the rest of the node's text is zero.
    stData.strGuid.resize(std::min(stData.strGuid.size(), kGuidSize));
    memset(pNode->szGuid, 0, sizeof pNode->szGuid);
    stData.strGuid.copy(pNode->szGuid, kGuidSize);
    if (decoded) zel::observe::decoded();
    if (pNode->uSize > kLargeDocument) stData.tree.reset();
    return decoded;
}

// The first thing that is wrong ends the reading, so the order decides which one the log names. The container is kept
// as soon as it is known: memory checks describe it even when the rules fail.
bool CEventHandle::GetJsonInfoEx(const JsonObject& pjRoot, ST_BUF_DATA& stData) {
    ZEL_ASSERT(pjRoot);
    if (!read_alert_type(pjRoot, stData)) return false;
    if (!zel::read_fields(pjRoot, stData, kRootFields, Words::not_string)) return false;
    if (alert_type::has_container(stData.nAlertType)) {
        if (!zel::read_fields(pjRoot, stData, kContainerFields, Words::not_string)) return false;
        keep_container(stData);
    }
    if (alert_type::has_malicious_key(stData.nAlertType) &&
        !zel::read_field(pjRoot, stData, kMaliciousKeyField, Words::not_string))
        return false;
    if (!GetRuleInfo(pjRoot, stData.vecRule)) {
        LOG_ERROR("GetRuleInfo failed!");
        return false;
    }
    if (!GetExtenedInfo(pjRoot, stData)) {
        LOG_ERROR("GetExtenedInfo failed!\n");
        return false;
    }
    zel::decode_state().scratch.hand_over(stData);
    return true;
}

bool CEventHandle::GetRuleInfo(const JsonObject& pjRoot, std::vector<ST_RULE>& vecRule) {
    ZEL_ASSERT(pjRoot);
    const cJSON* rules = zel::find_required(pjRoot, kRuleKey);
    if (rules == nullptr) return false;
    if (!GetRuleInfoEx(rules, vecRule)) {
        LOG_ERROR("GetRuleInfoEx error.");
        return false;
    }
    return true;
}

bool CEventHandle::GetRuleInfoEx(const cJSON* pjRule, std::vector<ST_RULE>& vecRule) {
    ZEL_ASSERT(pjRule);
    vecRule.reserve(vecRule.size() + expected(*pjRule));
    for (const cJSON* item = pjRule->child; item != nullptr; item = item->next) {
        ST_RULE& stRule = vecRule.emplace_back();
        if (read_rule(item, stRule)) continue;
        // A refused rule leaves the document with its events, and their records stay allocated for good.
        for (ST_RAW_EVENT& stEvent : stRule.vecEvent) stEvent.pPrivate.leave();
        vecRule.pop_back();
        return false;
    }
    return true;
}

void CEventHandle::GetRuleTagsInfo(const JsonObject& pjRule, std::vector<std::string>& vecTags) {
    ZEL_ASSERT(pjRule);
    if (const cJSON* tags = pjRule.find(kTagsKey)) zel::append_texts(*tags, vecTags);
}

bool CEventHandle::events_under(const JsonObject& object, const zel::Key& key, std::vector<ST_RAW_EVENT>& events) {
    const cJSON* array = object.find(key);
    if (array == nullptr) {
        LOG_ERROR("get json obj error.");
        zel::observe::missing(object.node(), key.name);
        return false;
    }
    if (!GetRawEventInfoEx(array, events)) {
        LOG_ERROR("GetRawEventInfoEx error.");
        return false;
    }
    return true;
}

bool CEventHandle::GetRawEventInfo(const JsonObject& pjRuleArray, std::vector<ST_RAW_EVENT>& vecEvent) {
    ZEL_ASSERT(pjRuleArray);
    return events_under(pjRuleArray, kEventKey, vecEvent);
}

// An event that fails ends the list, and the events before it stay. The process of the last event is selected only when
// the whole list passes.
bool CEventHandle::GetRawEventInfoEx(const cJSON* pjRawEvent, std::vector<ST_RAW_EVENT>& vecEvent) {
    ZEL_ASSERT(pjRawEvent);
    zel::decode_state().spare_events.take(vecEvent, expected(*pjRawEvent));
    for (const cJSON* item = pjRawEvent->child; item != nullptr; item = item->next) {
        if (read_event(item, vecEvent.emplace_back())) continue;
        vecEvent.pop_back();
        return false;
    }
    SelectLastEventProcess(vecEvent);
    return true;
}

bool CEventHandle::GetHighlightInfo(const JsonObject& pjRawEventArray, std::vector<std::string>& vecText,
                                    const char* key) {
    ZEL_ASSERT(pjRawEventArray);
    const cJSON* texts = pjRawEventArray.find(key);
    if (texts == nullptr) return false;
    zel::append_texts(*texts, vecText);
    return true;
}

// For all other alert types the key is not looked at, whether it is there or not.
bool CEventHandle::GetExtenedInfo(const JsonObject& pjRoot, ST_BUF_DATA& stData) {
    ZEL_ASSERT(pjRoot);
    const bool scenario = alert_type::has_scenario(stData.nAlertType);
    if (!scenario && !alert_type::has_message(stData.nAlertType)) return true;
    const cJSON* info = pjRoot.find(kExtendedInfoKey);
    if (info == nullptr) {
        LOG_ERROR("get json value error.key:%s", kExtendedInfoKey.name);
        zel::observe::missing(pjRoot.node(), kExtendedInfoKey.name);
        return false;
    }
    if (scenario) return GetScenarioInfo(info, stData);
    return zel::read_field<ST_BUF_DATA>(info, stData, kExtendedMsgField, Words::not_string);
}

// --- the keys as rows ---

namespace {

constexpr KeyRow kDocumentKeys[] = {
    zel::key_row(kAlertTypeField),
    {kRuleKey.name, ValueKind::objects, Need::required, "rule"},
    zel::key_row(kGuidField),
};
constexpr auto kRootKeys = zel::key_rows(kRootFields);
constexpr auto kContainerKeys = zel::key_rows(kContainerFields);
constexpr KeyRow kMaliciousKey[] = {zel::key_row(kMaliciousKeyField)};
constexpr KeyRow kScenarioKey[] = {{kExtendedInfoKey.name, ValueKind::object, Need::required, "scenario_holder"}};
constexpr KeyRow kMessageKey[] = {{kExtendedInfoKey.name, ValueKind::object, Need::required, "message"}};
constexpr KeyRow kMessageKeys[] = {zel::key_row(kExtendedMsgField)};
constexpr auto kRuleKeys = zel::key_rows(kRuleFields);
constexpr KeyRow kRuleLists[] = {
    {kTagsKey.name, ValueKind::texts, Need::silent},
    {kEventKey.name, ValueKind::objects, Need::required, "event"},
};
constexpr auto kSubjectKeys = zel::key_rows(kSubjectFields);
constexpr KeyRow kSubjectLists[] = {
    {kHighlightKey.name, ValueKind::texts, Need::silent},
    {kSubHighlightKey.name, ValueKind::texts, Need::silent},
};

// ExtendedInfo stands twice: what it holds depends on the alert type, as in GetExtenedInfo.
constexpr zel::KeyTable kDocumentTables[] = {
    {"document", kDocumentKeys},
    {"document", kRootKeys},
    {"document", kContainerKeys, alert_type::has_container},
    {"document", kMaliciousKey, alert_type::has_malicious_key},
    {"document", kScenarioKey, alert_type::has_scenario},
    {"document", kMessageKey, alert_type::has_message},
    {"message", kMessageKeys},
    {"rule", kRuleKeys},
    {"rule", kRuleLists},
    {"event", kSubjectKeys},
    {"event", kSubjectLists},
};

}  // namespace

std::span<const zel::KeyTable> zel::document_key_tables() { return kDocumentTables; }
