#include "bench/baseline.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdlib>

#include "bench/documents.h"
#include "decode/event_records.h"
#include "decode/jsonparse.h"
#include "fuzz/fuzz_alert.h"

using vorn_retrace::threat_event;
using vorn_retrace::vorn_trace_info;

namespace {

// Written through, so that the compiler keeps what nobody reads.
volatile const void* g_seen;

template <typename Keys>
void look_up(const cJSON* object, const Keys& keys) {
    for (const char* key : keys) g_seen = cJSON_GetObjectItem(object, key);
}

void walk(const cJSON* root) {
    look_up(root, kRootKeys);
    for (const cJSON* rule = cJSON_GetObjectItem(root, "rule")->child; rule != nullptr; rule = rule->next) {
        look_up(rule, kRuleKeys);
        for (const cJSON* event = cJSON_GetObjectItem(rule, "event")->child; event != nullptr; event = event->next) {
            look_up(event, kEventKeys);
            look_up(event, object_keys(static_cast<unsigned>(cJSON_GetObjectItem(event, "type")->valueint)));
        }
    }
}

void fill_object(const ST_RAW_EVENT& from, threat_event& to) {
    switch (from.uType) {
        case 1: {
            const auto& process = *from.pPrivate.as<ST_PROCESS_CREATE>();
            auto& object = *to.mutable_object_processcreate();
            to.set_type(vorn_retrace::VORN_TRACE_PROCESS);
            object.set_process_path(process.strImage);
            object.set_process_commandline(process.strCmd);
            object.set_process_user(process.strUser);
            object.set_process_guid(process.strGuid);
            object.set_process_md5(process.strMd5);
            object.set_process_sha256(process.strSha256);
            object.set_process_id(process.uPid);
            object.set_thread_tid(process.uTid);
            object.set_process_createtime(process.llCreateTime);
            break;
        }
        case 6: {
            const auto& file = *from.pPrivate.as<ST_FILE_CREATE>();
            to.set_type(vorn_retrace::VORN_TRACE_FILE_CREATE);
            to.mutable_object_file_create()->set_file_path(file.strFilePath);
            to.mutable_object_file_create()->set_file_type(file.strFileType);
            break;
        }
        case 8: {
            const auto& file = *from.pPrivate.as<ST_FILE_RENAME>();
            to.set_type(vorn_retrace::VORN_TRACE_FILE_RENAME);
            to.mutable_object_file_rename()->set_file_post_path(file.strNewFilePath);
            to.mutable_object_file_rename()->set_file_pre_path(file.strOldFilePath);
            to.mutable_object_file_rename()->set_file_type(file.strFileType);
            break;
        }
        case 14: {
            const auto& connection = *from.pPrivate.as<ST_NETWORK_CONNECT>();
            auto& object = *to.mutable_object_net_connect();
            to.set_type(vorn_retrace::VORN_TRACE_NET_CONNECT);
            object.set_net_dst_ip(connection.strDstIp);
            object.set_net_src_ip(connection.strSrcIp);
            object.set_net_proto(connection.strProtocol);
            object.set_net_dst_port(static_cast<int>(connection.uDstPort));
            object.set_net_src_port(static_cast<int>(connection.uSrcPort));
            break;
        }
        default: {
            const auto& file = *from.pPrivate.as<ST_FILE_OPEN_INFO>();
            to.set_type(vorn_retrace::VORN_TRACE_FILE_OPEN);
            to.mutable_object_file_open()->set_file_path(file.strFilePath);
            to.mutable_object_file_open()->set_file_type(file.strFileType);
        }
    }
}

void fill_event(const ST_RAW_EVENT& from, threat_event& to) {
    to.set_op_time(from.llOpTime);
    to.set_version(static_cast<int>(from.uVersion));
    auto& subject = *to.mutable_subject_process();
    subject.set_login_name(from.strLoginName);
    subject.set_ssh_login_ip(from.strSshIp);
    subject.set_process_md5(from.strMd5);
    subject.set_process_sha256(from.strSha256);
    subject.set_process_id(from.uPid);
    subject.set_thread_tid(from.uTid);
    subject.set_process_path(from.strImage);
    subject.set_process_commandline(from.strCmd);
    subject.set_process_createtime(from.llCreateTime);
    subject.set_process_user(from.strUser);
    subject.set_process_guid(from.strGuid);
    for (const std::string& text : from.vecHighlight) to.add_highlight()->set_str_data(text);
    fill_object(from, to);
}

}  // namespace

namespace bench {

void Ready::fill(int events, vorn_trace_info& info) const {
    info.set_agent_id("0");
    info.set_cmd(vorn_retrace::TRACE_CMD_BASE_INFO);
    auto& threat = *info.mutable_threat();
    threat.set_alert_type(static_cast<vorn_retrace::VORN_RISK_TYPE>(data_.nAlertType));
    threat.set_alert_guid(data_.strGuid);
    threat.set_risk_level(vorn_retrace::VORN_RISK_LEVEL_HIGH);
    threat.set_threat_score(static_cast<float>(data_.uThreatScore));
    threat.set_total_score(static_cast<float>(data_.uTotalScore));
    threat.set_alert_new_time(data_.llLatestOpTime);
    threat.set_alert_old_time(data_.llEarliestOpTime);
    threat.set_alert_desc(data_.strBestRuleDesc);
    threat.set_alert_name(data_.strBestRuleName);
    threat.set_alert_count(static_cast<int>(data_.uCount));
    threat.set_same_alert_key(data_.llHash);
    threat.set_engine_ver(data_.strEngineVer);
    threat.set_engine_rule_ver(data_.strEngineRuleVer);
    const ST_RULE& from = data_.vecRule.front();
    for (int first = 0; first < events; first += kRuleEvents) {
        for (const std::string& tag : from.vecTags) info.add_trace_tags_exs()->set_str_data(tag);
        auto& rule = *threat.add_alert_rule();
        rule.set_rule_id(from.strRuleId);
        rule.set_mitre_id(from.strMitreId);
        rule.set_internal_id(from.strInternalId);
        rule.set_threat_score(static_cast<float>(from.nScore));
        rule.set_threat_desc(from.strRuleDesc);
        rule.set_status(vorn_retrace::VORN_RULE_ENABLE);
        rule.set_version(from.strVersion);
        rule.set_threat_name(from.strRuleName);
        rule.set_risk_tag(from.strRiskTag);
        rule.set_confidence(from.nConfidence);
        for (const std::string& tag : from.vecTags) rule.add_tags()->set_str_data(tag);
        for (int i = first; i < std::min(events, first + kRuleEvents); ++i)
            fill_event(from.vecEvent[static_cast<size_t>(i % kKindCount)], *rule.add_alert_event());
    }
}

Ready::Ready() { CEventHandle::GetJsonInfo(make_node(make_document(kKindCount)).get(), data_); }

Ready::~Ready() { FreeBufData(data_); }

size_t baseline(const Ready& ready, const std::string& text, int events) {
    cJSON* const root = cJSON_Parse(text.c_str());
    walk(root);
    size_t size = 0;
    {
        vorn_trace_info info;
        ready.fill(events, info);
        size = info.ByteSizeLong();
        char* const buffer = static_cast<char*>(malloc(size));
        g_seen = info.SerializeToArray(buffer, static_cast<int>(size)) ? buffer : nullptr;
        free(buffer);
    }
    cJSON_Delete(root);
    return size;
}

}  // namespace bench
