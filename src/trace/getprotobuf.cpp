// What all builders have in common: agent id and command, levels, container texts, lists, and the last step.
#include "trace/getprotobuf_steps.h"

#include <strings.h>

#include <cstdlib>
#include <limits>
#include <span>

#include "common/log.h"
#include "trace/field_table.h"
#include "trace/getprotobuf.h"
#include "trace/text_check.h"

using namespace vorn_retrace;
using zel::ContainerTexts, zel::text;

namespace {

// Levels as the engines spell them, in any case of letters.
struct LevelText {
    const char* text;
    int number;
};
constexpr LevelText kRiskLevels[] = {
    {"Verbose", VORN_RISK_LEVEL_VERBOSE}, {"Low", VORN_RISK_LEVEL_LOW},           {"Medium", VORN_RISK_LEVEL_MID},
    {"High", VORN_RISK_LEVEL_HIGH},       {"Critical", VORN_RISK_LEVEL_CRITICAL},
};
constexpr LevelText kRuleStatus[] = {
    {"Enable", VORN_RULE_ENABLE},
    {"Disable", VORN_RULE_DISABLE},
    {"Verify", VORN_RULE_VERIFY},
    {"Trigger", VORN_RULE_TRIGGER},
};

// In the order in which the texts are checked.
constexpr auto kContainer =
    std::make_tuple(text(&threat_alert::mutable_containerid, &ContainerTexts::strContainerId),
                    text(&threat_alert::mutable_repository, &ContainerTexts::strRepository),
                    text(&threat_alert::mutable_mounts, &ContainerTexts::strMounts),
                    text(&threat_alert::mutable_user, &ContainerTexts::strUser),
                    text(&threat_alert::mutable_container_namespace, &ContainerTexts::strNamespace),
                    text(&threat_alert::mutable_imageid, &ContainerTexts::strImageId),
                    text(&threat_alert::mutable_imagetag, &ContainerTexts::strImageTag),
                    text(&threat_alert::mutable_containername, &ContainerTexts::strContainerName),
                    text(&threat_alert::mutable_capability, &ContainerTexts::strCapability),
                    text(&threat_alert::mutable_ports_binding, &ContainerTexts::strPortsBinding),
                    text(&threat_alert::mutable_image_name, &ContainerTexts::strImageName));

// 0, the "unknown" of both enums, for a text that is not in the table.
int level_number(std::span<const LevelText> table, const std::string& text) {
    for (const LevelText& level : table)
        if (strcasecmp(level.text, text.c_str()) == 0) return level.number;
    return 0;
}

}  // namespace

namespace zel {

bool passed(bool ok, const char* failure, std::source_location where) {
    if (!ok) LOG_ERROR_AT(where, "%s", failure);
    return ok;
}

// The element is added before its text is checked. So a list that ends at a refused text has an empty element there.
bool add_texts(const std::vector<std::string>& texts, google::protobuf::RepeatedPtrField<string_ex>* list,
               std::source_location where) {
    for (const std::string& text : texts) {
        string_ex* element = list->Add();
        if (!CheckDsStr(text, where)) return false;
        element->set_str_data(text);
    }
    return true;
}

bool fill_container(threat_alert& alert, ContainerTexts& texts) { return fill(alert, texts, kContainer); }

}  // namespace zel

// An agent without an id in its environment still reports, as "0".
bool CGetProtobuf::GetMainBuf(vorn_trace_info* pInfo, TRACE_CMD eCmd) {
    if (const char* agent_id = getenv("agentid"); agent_id != nullptr) {
        LOG_INFO("get cwpp agentid[%s]", agent_id);
        pInfo->set_agent_id(agent_id);
    } else {
        LOG_ERROR("get agentid from env error !");
        pInfo->set_agent_id("0");
    }
    pInfo->set_cmd(eCmd);
    return true;
}

void CGetProtobuf::SetRiskLevel(const ST_BUF_DATA& stData, threat_alert* pAlert) {
    pAlert->set_risk_level(static_cast<VORN_RISK_LEVEL>(level_number(kRiskLevels, stData.strRiskLevel)));
}

void CGetProtobuf::SetRuleStatus(const ST_RULE& stRule, threat_rule* pRule) {
    pRule->set_status(static_cast<VORN_RULE_STATUS>(level_number(kRuleStatus, stRule.strStatus)));
}

// A refused tag ends the tags of all rules, not only those of its own.
void CGetProtobuf::SetTraceTags(const ST_BUF_DATA& stData, vorn_trace_info* pInfo, uint32_t uEventId) {
    if (uEventId == event_id::mem_detect) pInfo->add_trace_tags_exs()->set_str_data("MemDection");
    if (uEventId != event_id::ioa_alert) return;
    for (const ST_RULE& rule : stData.vecRule)
        if (!zel::add_texts(rule.vecTags, pInfo->mutable_trace_tags_exs())) return;
}

// The size is computed once: it is that of the one allocation, and the message remembers the sizes of its parts.
uint64_t CGetProtobuf::SerializeTraceInfo(const vorn_trace_info& info, zel::MallocBuffer& buffer,
                                          std::source_location where) {
    const uint64_t size = info.ByteSizeLong();
    zel::MallocBuffer bytes = zel::malloc_buffer(size);
    if (bytes == nullptr) {
        LOG_ERROR_AT(where, "new protobuf error!");
        return 0;
    }
    // The library has no sizes of 2 GiB or more.
    if (size > std::numeric_limits<int>::max()) {
        LOG_ERROR_AT(where, "SerializeToArray failed!");
        return 0;
    }
    info.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(bytes.get()));
    buffer = std::move(bytes);
    return size;
}
