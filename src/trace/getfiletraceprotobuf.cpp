// Traces that a host asks for. There is no alert behind them, so one is made up around the path: one rule, one event,
// the highest level and score. Runs on the thread of the host.
#include "common/log.h"
#include "trace/getprotobuf.h"
#include "trace/getprotobuf_steps.h"
#include "trace/text_check.h"

using namespace vorn_retrace;

namespace {

constexpr float kScore = 100.0F;

}  // namespace

uint64_t CGetProtobuf::GetFileTraceProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer) {
    const zel::TraceInfo info;
    threat_alert* alert = info->mutable_threat();
    if (!zel::passed(alert != nullptr, "mutable_threat failed!")) return 0;
    if (!zel::passed(GetMainBuf(info.get(), TRACE_CMD_BASE_INFO), "GetMainBuf failed!")) return 0;
    if (!zel::passed(GetFileTraceThreatAlertInfo(stNode, alert), "GetThreatAlertInfo failed!")) return 0;
    return SerializeTraceInfo(*info, buffer);
}

bool CGetProtobuf::GetFileTraceThreatAlertInfo(const ST_QUEQE_NODE& stNode, threat_alert* pAlert) {
    pAlert->set_alert_type(VORN_RISK_FILEMON);
    if (!CheckDsStr(stNode.szGuid, sizeof stNode.szGuid)) return false;
    pAlert->set_alert_guid(zel::array_text(stNode.szGuid));
    pAlert->set_risk_level(VORN_RISK_LEVEL_CRITICAL);
    pAlert->set_threat_score(kScore);
    pAlert->set_total_score(kScore);
    if (!CheckDsStr(stNode.stFileTrace.strFileKey)) return false;
    pAlert->set_file_key(stNode.stFileTrace.strFileKey);
    return SetFileTraceEvent(stNode, pAlert);
}

// The host asks for a file or for the processes of a path; the event's type tells the trace module which.
bool CGetProtobuf::SetFileTraceEvent(const ST_QUEQE_NODE& stNode, threat_alert* pAlert) {
    threat_event* event = pAlert->add_alert_rule()->add_alert_event();
    const std::string& path = stNode.stFileTrace.strPath;
    switch (stNode.uEventId) {
        case event_id::file_trace_file: {
            event->set_type(VORN_TRACE_FILE_CREATE);
            file_create_vertex* object = event->mutable_object_file_create();
            if (!zel::passed(object != nullptr, "mutable_object_file_create failed!") || !CheckDsStr(path))
                return false;
            object->set_file_path(path);
            return true;
        }
        case event_id::file_trace_process: {
            event->set_type(VORN_TRACE_PROCESS);
            process_vertex* object = event->mutable_object_processcreate();
            if (!zel::passed(object != nullptr, "mutable_object_processcreate failed!") || !CheckDsStr(path))
                return false;
            object->set_process_path(path);
            return true;
        }
        default: LOG_ERROR("unknown event id:%d", static_cast<int>(stNode.uEventId)); return false;
    }
}
