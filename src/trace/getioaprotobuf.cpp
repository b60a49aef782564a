// Alerts that arrive as JSON documents: the alert, its rules, their events and the subject of each event. The objects
// are filled in getioaprotobuf_objects.cpp. Texts are checked in the order in which they stand in the tables.
#include "common/checks.h"
#include "common/log.h"
#include "decode/alert_types.h"
#include "trace/field_table.h"
#include "trace/getioaprotobuf_objects.h"
#include "trace/getprotobuf.h"
#include "trace/getprotobuf_steps.h"

using namespace vorn_retrace;
using zel::number, zel::text;

namespace {

// The members of a document. In the message, "new" is the latest time and "old" is the earliest.
constexpr auto kAlert = std::make_tuple(number(&threat_alert::set_threat_score, &ST_BUF_DATA::uThreatScore),
                                        number(&threat_alert::set_total_score, &ST_BUF_DATA::uTotalScore),
                                        number(&threat_alert::set_verify_score, &ST_BUF_DATA::uVerifyScore),
                                        number(&threat_alert::set_verify_total_score, &ST_BUF_DATA::uVerifyTotalScore),
                                        number(&threat_alert::set_alert_new_time, &ST_BUF_DATA::llLatestOpTime),
                                        number(&threat_alert::set_alert_old_time, &ST_BUF_DATA::llEarliestOpTime),
                                        text(&threat_alert::mutable_alert_desc, &ST_BUF_DATA::strBestRuleDesc),
                                        text(&threat_alert::mutable_scenario_id, &ST_BUF_DATA::strScenarioId),
                                        text(&threat_alert::mutable_alert_name, &ST_BUF_DATA::strBestRuleName),
                                        number(&threat_alert::set_alert_count, &ST_BUF_DATA::uCount),
                                        number(&threat_alert::set_same_alert_key, &ST_BUF_DATA::llHash),
                                        text(&threat_alert::mutable_engine_ver, &ST_BUF_DATA::strEngineVer),
                                        text(&threat_alert::mutable_engine_rule_ver, &ST_BUF_DATA::strEngineRuleVer),
                                        text(&threat_alert::mutable_extended_info, &ST_BUF_DATA::strExtendedMsg));

// The decoder does not know the schema, but the numbers are the same.
static_assert(alert_type::ioc == VORN_RISK_IOC && alert_type::ioa == VORN_RISK_IOA);
static_assert(alert_type::memory == VORN_RISK_MEMORY_DETECION && alert_type::rts_adr == VORN_RISK_RTS_ADR);

// The members of a rule.
constexpr auto kRule = std::make_tuple(text(&threat_rule::mutable_rule_id, &ST_RULE::strRuleId),
                                       text(&threat_rule::mutable_mitre_id, &ST_RULE::strMitreId),
                                       text(&threat_rule::mutable_internal_id, &ST_RULE::strInternalId),
                                       number(&threat_rule::set_threat_score, &ST_RULE::nScore),
                                       text(&threat_rule::mutable_threat_desc, &ST_RULE::strRuleDesc),
                                       text(&threat_rule::mutable_version, &ST_RULE::strVersion),
                                       text(&threat_rule::mutable_threat_name, &ST_RULE::strRuleName),
                                       text(&threat_rule::mutable_risk_tag, &ST_RULE::strRiskTag),
                                       number(&threat_rule::set_confidence, &ST_RULE::nConfidence));

// The process that acted.
constexpr auto kSubject = std::make_tuple(text(&process_vertex::mutable_process_path, &ST_RAW_EVENT::strImage),
                                          text(&process_vertex::mutable_process_commandline, &ST_RAW_EVENT::strCmd),
                                          text(&process_vertex::mutable_process_user, &ST_RAW_EVENT::strUser),
                                          text(&process_vertex::mutable_process_guid, &ST_RAW_EVENT::strGuid),
                                          text(&process_vertex::mutable_login_name, &ST_RAW_EVENT::strLoginName),
                                          text(&process_vertex::mutable_ssh_login_ip, &ST_RAW_EVENT::strSshIp),
                                          text(&process_vertex::mutable_process_md5, &ST_RAW_EVENT::strMd5),
                                          text(&process_vertex::mutable_process_sha256, &ST_RAW_EVENT::strSha256),
                                          number(&process_vertex::set_process_id, &ST_RAW_EVENT::uPid),
                                          number(&process_vertex::set_thread_tid, &ST_RAW_EVENT::uTid),
                                          number(&process_vertex::set_process_createtime, &ST_RAW_EVENT::llCreateTime));

}  // namespace

// Alarm worker only. The document loses its records and may lose texts: what went into the message is not needed again.
uint64_t CGetProtobuf::GetComProtobuf(ST_BUF_DATA& stData, bool bRepeated, zel::MallocBuffer& buffer,
                                      int& nProcessCount, int& nRiskLevel, uint32_t uEventId) {
    const zel::TraceInfo info;
    // A repeat is sent like any other alert and says that it will not be traced.
    if (bRepeated) info->set_err_code(ERROR_CODE_TRACE_FILTERED);
    threat_alert* alert = info->mutable_threat();
    if (!zel::passed(alert != nullptr, "mutable_threat failed!")) return 0;
    if (!zel::passed(GetMainBuf(info.get(), TRACE_CMD_BASE_INFO), "GetMainBuf failed!")) return 0;
    SetTraceTags(stData, info.get(), uEventId);
    if (!zel::passed(GetThreatAlertInfo(stData, alert, nProcessCount, nRiskLevel), "GetThreatAlertInfo failed!"))
        return 0;
    return SerializeTraceInfo(*info, buffer);
}

// The first refused text ends the alert, so the order decides which text the log names.
bool CGetProtobuf::GetThreatAlertInfo(ST_BUF_DATA& stData, threat_alert* pAlert, int& nProcessCount, int& nRiskLevel) {
    pAlert->set_alert_type(static_cast<VORN_RISK_TYPE>(stData.nAlertType));
    if (!CheckDsStr(stData.strGuid)) return false;
    pAlert->set_alert_guid(stData.strGuid);
    SetRiskLevel(stData, pAlert);
    nRiskLevel = pAlert->risk_level();
    if (!zel::fill(*pAlert, stData, kAlert)) return false;

    if (alert_type::has_container(stData.nAlertType)) {
        if (!zel::fill_container(*pAlert, stData)) return false;
        pAlert->set_container_init_pid(stData.nContainerInitPid);
    }
    return SetRuleInfo(stData, pAlert, nProcessCount);
}

// One refused text, or one event that cannot be filled, ends the alert.
bool CGetProtobuf::SetRuleInfo(ST_BUF_DATA& stData, threat_alert* pAlert, int& nProcessCount) {
    for (ST_RULE& source : stData.vecRule) {
        threat_rule* rule = pAlert->add_alert_rule();
        if (!zel::fill(*rule, source, kRule)) return false;
        SetRuleStatus(source, rule);
        SetRuleTags(source, rule);
        if (!SetEventInfo(source, rule, nProcessCount, static_cast<VORN_RISK_TYPE>(stData.nAlertType),
                          stData.nContainerInitPid)) {
            LOG_ERROR("Set event info failed");
            return false;
        }
    }
    return true;
}

// A refused tag costs the tags behind it and nothing else.
void CGetProtobuf::SetRuleTags(const ST_RULE& stRule, threat_rule* pRule) {
    zel::add_texts(stRule.vecTags, pRule->mutable_tags());
}

bool CGetProtobuf::SetEventInfo(ST_RULE& stRule, threat_rule* pRule, int& nProcessCount, VORN_RISK_TYPE eAlertType,
                                int nContainerInitPid) {
    ZEL_ASSERT(pRule);
    // Room for all events at once: in an arena, each growth would leave the old room behind.
    pRule->mutable_alert_event()->Reserve(static_cast<int>(stRule.vecEvent.size()));
    for (ST_RAW_EVENT& source : stRule.vecEvent) {
        threat_event* event = pRule->add_alert_event();
        event->set_op_time(source.llOpTime);
        event->set_version(static_cast<int32_t>(source.uVersion));
        if (!SetSubjectInfo(source, event)) {
            LOG_ERROR("SetSubjectInfo failed!");
            return false;
        }
        SetEventHighlight(source, event);
        switch (eAlertType) {
            // What these alerts are about is the subject alone.
            case VORN_RISK_HOTPATCH: event->set_type(VORN_TRACE_HOTPATCH); break;
            case VORN_RISK_MEMORY_DETECION: event->set_type(VORN_TRACE_MEMORY_DETECION); break;
            case VORN_RISK_RTS_ADR: event->set_type(VORN_TRACE_RTS_ADR); break;
            default:
                if (!SetEventPrivateInfo(source, event, nContainerInitPid)) {
                    LOG_ERROR("SetSubjectInfo failed!");  // the text known for the object as well
                    return false;
                }
        }
        nProcessCount = zel::checked_add(nProcessCount, 1);
        source.pPrivate = {};  // all of it is in the message; it ends while the cache still has it
    }
    return true;
}

// All texts of the subject are checked before one is set.
bool CGetProtobuf::SetSubjectInfo(ST_RAW_EVENT& stEvent, threat_event* pEvent) {
    process_vertex* subject = pEvent->mutable_subject_process();
    return zel::passed(subject != nullptr, "mutable_subject_process failed!") && zel::fill(*subject, stEvent, kSubject);
}

// When the first list ends at a refused text, the second one is not looked at.
void CGetProtobuf::SetEventHighlight(const ST_RAW_EVENT& stEvent, threat_event* pEvent) {
    if (zel::add_texts(stEvent.vecHighlight, pEvent->mutable_highlight()))
        zel::add_texts(stEvent.vecSubHighlight, pEvent->mutable_subhighlight());
}

// The row of the type fills the object from the event's record and sets the type by which a reader finds it.
bool CGetProtobuf::SetEventPrivateInfo(ST_RAW_EVENT& stEvent, threat_event* pEvent, int nContainerInitPid) {
    ZEL_ASSERT(pEvent);
    const zel::ObjectRow* row = zel::find_object_row(stEvent.uType);
    if (row == nullptr) {
        LOG_ERROR("The event is unknown.event:%%");  // without the number; operators know the text so
        return false;
    }
    pEvent->set_type(row->type);
    return row->fill(stEvent, pEvent, nContainerInitPid);
}
